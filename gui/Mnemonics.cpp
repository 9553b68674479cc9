#include "Mnemonics.h"

#include <QAction>
#include <QKeySequence>

namespace Nmb {
namespace Gui {

namespace {
bool usable(QChar c)
{
    return c.unicode() < 128 && c.isLetterOrNumber();
}

// Position in text of the letter to mark, or -1.
int pickLetter(const QString &text, const QString &taken)
{
    for (bool wordStartsOnly : {true, false}) {
        for (int i = 0; i < text.size(); ++i) {
            const QChar c = text.at(i);
            const bool wordStart = i == 0 || !text.at(i - 1).isLetterOrNumber();
            if (usable(c) && (wordStart || !wordStartsOnly) && !taken.contains(c.toLower()))
                return i;
        }
    }
    return -1;
}
} // namespace

QStringList withMnemonics(const QStringList &texts, const QString &taken)
{
    QString claimed = taken.toLower();
    QStringList marked;
    for (const QString &text : texts) {
        const int at = pickLetter(text, claimed);
        QString result;
        for (int i = 0; i < text.size(); ++i) {
            if (i == at)
                result += QLatin1Char('&');
            result += text.at(i);
            if (text.at(i) == QLatin1Char('&'))
                result += QLatin1Char('&');
        }
        if (at >= 0)
            claimed += text.at(at).toLower();
        marked << result;
    }
    return marked;
}

QString altKeysOf(const QList<QAction *> &actions)
{
    QString keys;
    for (const QAction *action : actions) {
        const QKeySequence shortcut = action->shortcut();
        if (shortcut.isEmpty())
            continue;
        const int combined = shortcut[0];
        const int key = combined & ~int(Qt::KeyboardModifierMask);
        if ((combined & int(Qt::KeyboardModifierMask)) == int(Qt::AltModifier) && key < 128)
            keys += QChar(key).toLower();
    }
    return keys;
}

QChar mnemonicOf(const QString &text)
{
    for (int i = 0; i + 1 < text.size(); ++i) {
        if (text.at(i) != QLatin1Char('&'))
            continue;
        if (text.at(i + 1) != QLatin1Char('&'))
            return text.at(i + 1).toLower();
        ++i; // "&&" is a literal ampersand
    }
    return QChar();
}

} // namespace Gui
} // namespace Nmb
