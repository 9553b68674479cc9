// Small helpers shared by the windows: accessibility focus notification,
// the compiled-in images and centring on the screen.
#pragma once

class QObject;
class QWidget;

namespace Nmb {
namespace Gui {

// Tells accessibility tools that object has the focus.
void postAccessibleFocus(QObject *object);

// Registers the compiled-in images (":/crypt/..."); safe to call repeatedly.
void initResources();

// Centres window on the primary screen's available area, keeping its size.
void centreOnPrimaryScreen(QWidget *window);

} // namespace Gui
} // namespace Nmb
