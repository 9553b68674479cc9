// Looked-up texts of the list operations. Every user-visible text is an
// English key passed through the locale table, then converted with Latin-1
// like every other text of the program.
#pragma once

#include <QString>

#include <localization/LocaleStrings.h>

// Looks up a literal key and fills its arguments printf-style.
#define LISTOPS_TEXT(...) \
    QString::fromLatin1(LocaleStrings::instance().format(__VA_ARGS__).c_str())
