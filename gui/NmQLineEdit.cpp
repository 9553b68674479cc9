#include "NmQLineEdit.h"

#include "GuiSupport.h"

#include <engine/SecretText.h>

#include <QFocusEvent>
#include <QSignalBlocker>

namespace Nmb {
namespace Gui {

namespace {

// Characters and edits that the field takes in place, without moving its
// storage (see prepareStorage).
const int kRoom = 1024;
// More edits than any passphrase takes; the bound on the overwriting work.
const int kMaxRecords = 1 << 16;

} // namespace

NmQLineEdit::NmQLineEdit(QWidget *parent)
    : QLineEdit(parent)
{
    prepareStorage(kRoom);
    connect(this, &QLineEdit::textChanged, this, &NmQLineEdit::onTextChanged);
}

void NmQLineEdit::focusInEvent(QFocusEvent *event)
{
    if (event->type() == QEvent::FocusIn)
        postAccessibleFocus(this);
    QLineEdit::focusInEvent(event);
}

void NmQLineEdit::clearSecret()
{
    m_clearing = true;
    // text() and displayText() share the toolkit's own strings: the typed
    // text and, when it is shown, the laid-out copy.
    secret_text::overwriteShared(text());
    secret_text::overwriteShared(displayText());
    setText(QString()); // forgets the undo history; its records stay in memory
    prepareStorage(m_records);
    m_records = 0;
    m_lastLength = 0;
    m_clearing = false;
}

void NmQLineEdit::onTextChanged(const QString &text)
{
    if (m_clearing)
        return;
    m_records = qMin(kMaxRecords, m_records + m_lastLength + text.size() + 8);
    m_lastLength = text.size();
    if (text.isEmpty())
        QMetaObject::invokeMethod(this, &NmQLineEdit::clearSecret, Qt::QueuedConnection);
}

// The toolkit keeps the text in one string and every edit as an undo record
// that holds the character it inserted or removed. Both grow by moving to a
// larger block and freeing the old one as it is, which would scatter pieces
// of a passphrase over freed memory. Here both are written over and grown
// before anything is typed: the undo records, which keep their room when the
// history is forgotten, are overwritten with filler (at least `records` of
// them), and the text becomes an empty string with room for kRoom
// characters. Typing then stays in place, where clearSecret() reaches it.
// Nothing of this is shown or signalled.
void NmQLineEdit::prepareStorage(int records)
{
    const QSignalBlocker blocker(this);
    const int limit = qMax(1, maxLength());
    for (int written = 0; written < qMax(records, kRoom);) {
        const int count = qMin(qMax(records, kRoom) - written, limit);
        selectAll();
        insert(QString(count, QLatin1Char('x')));
        written += count;
    }
    QString room;
    room.reserve(kRoom);
    setText(room);
}

} // namespace Gui
} // namespace Nmb
