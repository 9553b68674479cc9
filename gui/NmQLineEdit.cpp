#include "NmQLineEdit.h"

#include "GuiSupport.h"

#include <QFocusEvent>

namespace Nmb {
namespace Gui {

NmQLineEdit::NmQLineEdit(QWidget *parent)
    : QLineEdit(parent)
{
}

void NmQLineEdit::focusInEvent(QFocusEvent *event)
{
    if (event->type() == QEvent::FocusIn)
        postAccessibleFocus(this);
    QLineEdit::focusInEvent(event);
}

} // namespace Gui
} // namespace Nmb
