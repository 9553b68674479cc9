// The one way Qt code turns an English key into display text: looked up in
// the locale table, filled printf-style, converted from UTF-8 (the encoding
// of the strings files and of the paths filled into the texts).
#pragma once

#include <QString>

#include <localization/LocaleStrings.h>

#define NM_TR(...) QString::fromUtf8(LocaleStrings::instance().format(__VA_ARGS__).c_str())
