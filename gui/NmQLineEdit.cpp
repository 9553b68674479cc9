#include "NmQLineEdit.h"

#include "GuiSupport.h"

#include <engine/SecretText.h>

#include <QFocusEvent>
#include <QSignalBlocker>

namespace Nmb {
namespace Gui {

namespace {

// Undo records made ready before anything is typed (see
// overwriteUndoRecords): typing that many keys moves nothing in memory.
const int kRecordRoom = 1024;
// More edits than any passphrase takes; the bound on the overwriting work.
const int kMaxRecords = 1 << 16;

} // namespace

NmQLineEdit::NmQLineEdit(QWidget *parent)
    : QLineEdit(parent)
{
    overwriteUndoRecords(kRecordRoom);
    connect(this, &QLineEdit::textChanged, this, &NmQLineEdit::onTextChanged);
    connect(this, &QLineEdit::selectionChanged, this, &NmQLineEdit::keepVersions);
}

void NmQLineEdit::setEchoMode(EchoMode mode)
{
    QLineEdit::setEchoMode(mode);
    keepVersions();
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
    keepVersions(); // the current ones too
    for (const QString &version : qAsConst(m_versions))
        secret_text::overwriteShared(version);
    m_versions.clear();
    setText(QString()); // forgets the undo history; its records stay in memory
    overwriteUndoRecords(m_records);
    m_records = 0;
    m_lastLength = 0;
    m_clearing = false;
}

void NmQLineEdit::onTextChanged(const QString &text)
{
    if (m_clearing)
        return;
    keepVersions();
    m_records = qMin(kMaxRecords, m_records + m_lastLength + text.size() + 8);
    m_lastLength = text.size();
    if (text.isEmpty())
        QMetaObject::invokeMethod(this, &NmQLineEdit::clearIfEmpty, Qt::QueuedConnection);
}

// text() and displayText() share the toolkit's own strings: the text and
// the laid-out copy that shows it (or its bullets).
void NmQLineEdit::keepVersions()
{
    for (const QString &version : {text(), displayText()}) {
        bool held = false; // among the last two, the versions kept last time
        for (int i = qMax(0, m_versions.size() - 2); i < m_versions.size(); ++i)
            held = held || m_versions.at(i).constData() == version.constData();
        if (!held)
            m_versions << version;
    }
}

// Emptied by a person: what led there is wiped, unless typing has begun anew.
void NmQLineEdit::clearIfEmpty()
{
    if (text().isEmpty())
        clearSecret();
}

// The toolkit records every edit for undo, each record holding the character
// it inserted or removed, in one array that keeps its room when the history
// is forgotten and moves to a larger block (freeing the old one as it is)
// when it grows. Inserting filler writes over the first `records` records in
// place, and at least kRecordRoom of them, so that the array has grown before
// anything is typed. Nothing of this is shown or signalled.
void NmQLineEdit::overwriteUndoRecords(int records)
{
    const QSignalBlocker blocker(this);
    const int total = qMax(records, kRecordRoom);
    const int limit = qMax(1, maxLength());
    for (int written = 0; written < total;) {
        const int count = qMin(total - written, limit);
        selectAll();
        insert(QString(count, QLatin1Char('x')));
        written += count;
    }
    setText(QString());
}

} // namespace Gui
} // namespace Nmb
