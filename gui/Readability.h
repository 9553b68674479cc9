// Colours that stay readable on whatever palette the desktop gives the
// program: the contrast measure of the web's accessibility guidelines and a
// way to bend a preferred colour until it reaches it.
#pragma once

#include <QColor>
#include <QList>

namespace Nmb {
namespace Gui {

// The contrast ratio whose threshold (4.5:1) makes normal-sized text readable.
constexpr double kReadableContrast = 4.5;

// Relative luminance of an opaque colour, 0 (black) to 1 (white).
double relativeLuminance(const QColor &colour);

// (lighter + 0.05) / (darker + 0.05): 1 for equal colours, 21 for black on white.
double contrastRatio(const QColor &a, const QColor &b);

// wanted itself when it reaches kReadableContrast against every background;
// otherwise wanted mixed with white or black (whichever side reaches the
// threshold with the smaller change), just far enough, so its hue stays
// recognisable. backgrounds must not be empty.
QColor readableColour(const QColor &wanted, const QList<QColor> &backgrounds);

} // namespace Gui
} // namespace Nmb
