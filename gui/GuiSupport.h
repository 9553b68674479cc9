// Small helpers shared by the windows: accessibility focus notification,
// the compiled-in images and the lookup of display texts.
#pragma once

#include <QString>

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

// The display text for an English key from the locale string table, filled
// printf-style. The table holds Latin-1 text.
#define NM_TR(...) QString::fromLatin1(LocaleStrings::instance().format(__VA_ARGS__).c_str())
