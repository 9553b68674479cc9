// Developer aids, active only when their environment variable is set:
// - NM_SCREENSHOT_DIR: the program photographs its own windows
//   (QWidget::grab) in a scripted scene and quits (tools/screenshots/take.sh).
// - NM_REPORT_AND_QUIT: once the command line's loading has ended, prints
//   "title=<window title>", "pending=<count>" and one "path=<path>" line per
//   pending path to standard output and quits with 0 (the command-line tests).
#pragma once

class MainWindow;

namespace Nmb {
namespace Gui {

// NM_SCREENSHOT_SCENE selects the scene: "dialogs" (empty window, settings,
// About and busy dialogs) or "batch" (types NM_SCREENSHOT_PASSPHRASE, presses
// Decrypt, photographs mid-batch and the end with its failure question).
void installDeveloperHooks(MainWindow *window);

} // namespace Gui
} // namespace Nmb
