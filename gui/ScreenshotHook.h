// Developer aid: with NM_SCREENSHOT_DIR set, the program photographs its own
// windows (QWidget::grab) in a scripted scene and quits. Used by
// tools/screenshots/take.sh; without the variable it does nothing.
#pragma once

class MainWindow;

namespace Nmb {
namespace Gui {

// NM_SCREENSHOT_SCENE selects the scene: "dialogs" (empty window, settings,
// About and busy dialogs) or "batch" (types NM_SCREENSHOT_PASSPHRASE, presses
// Decrypt, photographs mid-batch and the end with its failure question).
void installScreenshotHook(MainWindow *window);

} // namespace Gui
} // namespace Nmb
