// Looked-up texts of the engine. Every user-visible text is an English key
// passed through the locale table; the result becomes a QString with the
// Latin-1 conversion the program uses everywhere.
#pragma once

#include <string>

#include <QString>

#include <localization/LocaleStrings.h>

namespace engine_text {

inline QString fromLocale(const std::string &text)
{
    return QString::fromLatin1(text.c_str());
}

// Looks up a text that is only known at run time (a decrypter message). A
// percent sign in it is doubled first, so it can never act as a conversion.
QString lookupRuntime(const QString &key);

} // namespace engine_text

// Looks up a literal key, filling its arguments printf-style.
#define NM_TEXT(...) engine_text::fromLocale(LocaleStrings::instance().format(__VA_ARGS__))
