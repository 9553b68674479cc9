// The passphrase field: a line edit that tells accessibility tools when it
// gains the focus, so screen readers announce it like a native control, and
// that can be emptied without leaving its text behind in memory.
#pragma once

#include <QLineEdit>
#include <QList>

namespace Nmb {
namespace Gui {

class NmQLineEdit : public QLineEdit
{
    Q_OBJECT

public:
    explicit NmQLineEdit(QWidget *parent = nullptr);

    // Empties the field for good: the characters it held are overwritten,
    // and its undo and redo history, which could bring them back, is
    // forgotten and overwritten too. Emits textChanged("") once when there
    // was text. Also done by itself, soon after a person empties the field.
    void clearSecret();

    // As QLineEdit's (which is not virtual): the text laid out anew for the
    // new mode is kept for clearSecret() to overwrite.
    void setEchoMode(EchoMode mode);

protected:
    // Posts one accessibility focus event, then behaves as QLineEdit: the
    // text and the selection are left as they are.
    void focusInEvent(QFocusEvent *event) override;

private:
    void onTextChanged(const QString &text);
    void keepVersions();
    void clearIfEmpty();
    void overwriteUndoRecords(int records);

    // Every version of the text and of its laid-out copy since the last
    // clearing (the copy is laid out anew for a selection or an echo mode
    // too). Held, so that the toolkit moves on to new strings instead of
    // freeing these unwiped, and clearSecret() can overwrite them all.
    QList<QString> m_versions;
    // At least as many undo records as the toolkit may hold since the last
    // clearing (an edit records at most what it removed and inserted).
    int m_records = 0;
    int m_lastLength = 0;
    bool m_clearing = false;
};

} // namespace Gui
} // namespace Nmb
