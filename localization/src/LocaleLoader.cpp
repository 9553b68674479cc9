#include <localization/LocaleLoader.h>

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QLocale>

#include <localization/KVParser.h>
#include <localization/LocaleStrings.h>

namespace {
const char kStringsFile[] = "Localizable.strings";
}

QString localeDirectory(const QString &localeName)
{
    // The locales folder is a sibling of the program's folder.
    const QString base = QCoreApplication::applicationDirPath() + QStringLiteral("/../locales");
    QString candidate = base + QLatin1Char('/') + localeName + QStringLiteral(".lproj");
    if (!QFileInfo(candidate).isDir()) {
        const QString language = localeName.section(QLatin1Char('_'), 0, 0);
        candidate = base + QLatin1Char('/') + language + QStringLiteral(".lproj");
    }
    return QDir::cleanPath(QFileInfo(candidate).absoluteFilePath());
}

void loadLocaleStrings()
{
    try {
        const QString localeName = QLocale::system().name();
        const std::string name = localeName.toStdString();
        const std::string directory = localeDirectory(localeName).toStdString();
        LocaleStrings::instance().setParser(new NMLOCAL::KVParser(kStringsFile), name,
                                            directory, kStringsFile);
    } catch (...) {
        // Without a strings file every text is shown in English.
    }
}
