// Small helpers shared by the windows: accessibility notifications, the
// compiled-in images, high-DPI set-up and centring on the screen.
#pragma once

class QObject;
class QWidget;

namespace Nmb {
namespace Gui {

// Tells accessibility tools that object has the focus.
void postAccessibleFocus(QObject *object);

// Turns on high-DPI scaling and high-DPI pixmaps. Must run before the
// application object is created; the toolkit ignores it afterwards.
void enableHighDpi();

// Registers the compiled-in images (":/crypt/..."); safe to call repeatedly.
void initResources();

// Centres window on the primary screen's available area, keeping its size.
void centreOnPrimaryScreen(QWidget *window);

} // namespace Gui
} // namespace Nmb
