// Prints the display text of the key "Decrypt", looked up as the program
// looks up its texts: in the strings file of the system locale, found beside
// the folder of the (link-resolved) executable. The package test places it
// beside the installed program to prove that layout.
#include <localization/LocaleLoader.h>
#include <localization/LocaleText.h>

#include <QCoreApplication>

#include <cstdio>

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    loadLocaleStrings();
    std::printf("%s\n", NM_TR("Decrypt").toUtf8().constData());
    return 0;
}
