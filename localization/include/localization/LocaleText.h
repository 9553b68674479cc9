// The one way Qt code turns an English key into display text: looked up in
// the locale table, filled printf-style, converted with Latin-1 (the strings
// files are Latin-1).
#pragma once

#include <QString>

#include <localization/LocaleStrings.h>

#define NM_TR(...) QString::fromLatin1(LocaleStrings::instance().format(__VA_ARGS__).c_str())
