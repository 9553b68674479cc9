#include "EngineText.h"

#include <localization/LocaleStrings.h>

namespace engine_text {

QString lookupRuntime(const QString &key)
{
    QByteArray escaped = key.toUtf8();
    escaped.replace("%", "%%");
#if defined(__GNUC__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-security"
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#endif
    const std::string text = LocaleStrings::instance().format(escaped.constData());
#if defined(__GNUC__)
#pragma GCC diagnostic pop
#endif
    // The conversion of NM_TR.
    return QString::fromUtf8(text.c_str());
}

} // namespace engine_text
