#include "Readability.h"

#include <algorithm>
#include <cmath>

namespace Nmb {
namespace Gui {

namespace {
double linear(double channel)
{
    return channel <= 0.03928 ? channel / 12.92 : std::pow((channel + 0.055) / 1.055, 2.4);
}

double worstContrast(const QColor &colour, const QList<QColor> &backgrounds)
{
    double worst = 21.0;
    for (const QColor &background : backgrounds)
        worst = std::min(worst, contrastRatio(colour, background));
    return worst;
}

QColor mix(const QColor &from, const QColor &to, double t)
{
    return QColor::fromRgbF(from.redF() + (to.redF() - from.redF()) * t,
                            from.greenF() + (to.greenF() - from.greenF()) * t,
                            from.blueF() + (to.blueF() - from.blueF()) * t);
}

// The smallest step towards target (in 1/64ths) that is readable; an
// invalid colour when even target itself is not.
QColor nearestReadable(const QColor &wanted, const QColor &target, const QList<QColor> &backgrounds)
{
    for (int step = 1; step <= 64; ++step) {
        const QColor candidate = mix(wanted, target, step / 64.0);
        if (worstContrast(candidate, backgrounds) >= kReadableContrast)
            return candidate;
    }
    return QColor();
}
} // namespace

double relativeLuminance(const QColor &colour)
{
    const QColor rgb = colour.toRgb();
    return 0.2126 * linear(rgb.redF()) + 0.7152 * linear(rgb.greenF()) + 0.0722 * linear(rgb.blueF());
}

double contrastRatio(const QColor &a, const QColor &b)
{
    const double la = relativeLuminance(a);
    const double lb = relativeLuminance(b);
    return (std::max(la, lb) + 0.05) / (std::min(la, lb) + 0.05);
}

QColor readableColour(const QColor &wanted, const QList<QColor> &backgrounds)
{
    if (worstContrast(wanted, backgrounds) >= kReadableContrast)
        return wanted;
    const QColor lighter = nearestReadable(wanted, Qt::white, backgrounds);
    const QColor darker = nearestReadable(wanted, Qt::black, backgrounds);
    if (!lighter.isValid() || !darker.isValid()) {
        if (lighter.isValid() || darker.isValid())
            return lighter.isValid() ? lighter : darker;
        // Backgrounds spanning mid-grey to both ends: the better extreme.
        return worstContrast(Qt::white, backgrounds) > worstContrast(Qt::black, backgrounds) ? QColor(Qt::white)
                                                                                             : QColor(Qt::black);
    }
    const auto distance = [&wanted](const QColor &c) {
        return std::abs(relativeLuminance(c) - relativeLuminance(wanted));
    };
    return distance(lighter) <= distance(darker) ? lighter : darker;
}

} // namespace Gui
} // namespace Nmb
