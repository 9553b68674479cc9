// The passphrase field: a line edit that tells accessibility tools when it
// gains the focus, so screen readers announce it like a native control.
#pragma once

#include <QLineEdit>

namespace Nmb {
namespace Gui {

class NmQLineEdit : public QLineEdit
{
    Q_OBJECT

public:
    explicit NmQLineEdit(QWidget *parent = nullptr);

protected:
    // Posts one accessibility focus event, then behaves as QLineEdit: the
    // text and the selection are left as they are.
    void focusInEvent(QFocusEvent *event) override;
};

} // namespace Gui
} // namespace Nmb
