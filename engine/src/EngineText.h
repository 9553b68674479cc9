// The engine's one text helper beyond the shared NM_TR of
// <localization/LocaleText.h>: the lookup of a text known only at run time.
#pragma once

#include <QString>

namespace engine_text {

// Looks up a text that is only known at run time (a decrypter message, or a
// message that was looked up once already). A percent sign in it is doubled
// first, so it can never act as a conversion.
QString lookupRuntime(const QString &key);

} // namespace engine_text
