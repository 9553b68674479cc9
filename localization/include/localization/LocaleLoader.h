// Finding and loading the system locale's strings file (Qt Core).
#pragma once

#include <QString>

// Absolute path of <program folder>/../locales/<localeName>.lproj, or of the
// language's folder (<language>.lproj) when the full name has none.
QString localeDirectory(const QString &localeName);

// (Re)loads the table for QLocale::system(); never throws.
void loadLocaleStrings();
