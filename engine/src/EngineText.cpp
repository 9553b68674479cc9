#include "EngineText.h"

namespace engine_text {

QString lookupRuntime(const QString &key)
{
    QByteArray escaped = key.toLatin1();
    escaped.replace("%", "%%");
#if defined(__GNUC__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-security"
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#endif
    return fromLocale(LocaleStrings::instance().format(escaped.constData()));
#if defined(__GNUC__)
#pragma GCC diagnostic pop
#endif
}

} // namespace engine_text
