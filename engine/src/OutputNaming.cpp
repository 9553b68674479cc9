#include "OutputNaming.h"

#include <QFileInfo>

namespace output_naming {

const char *const kEnvelopeExtension = "nimbra-env";

namespace {

const QLatin1String kMark("(decrypted)");
const QLatin1String kSecondMark("(decrypted 2)");

// "." + ext, or nothing for a name without extension.
QString dotted(const QString &ext)
{
    return ext.isEmpty() ? QString() : QLatin1Char('.') + ext;
}

bool isTaken(const QString &path)
{
    // A dangling link counts: the output would be written through it. Asking
    // for the link first costs one lstat, which also answers exists() unless
    // the name is a link.
    const QFileInfo info(path);
    return info.isSymLink() || info.exists();
}

QString markedName(const QString &output)
{
    const QFileInfo info(output);
    QString base = info.completeBaseName();
    if (base.contains(kMark))
        base.replace(kMark, kSecondMark);
    else
        base += kMark;
    return info.absolutePath() + QLatin1Char('/') + base + dotted(info.suffix());
}

} // namespace

OutputName outputFor(const QString &sourcePath)
{
    const QFileInfo source(sourcePath);
    const QString dir = source.absolutePath();
    const QString base = source.completeBaseName();
    const QString ext = source.suffix();

    OutputName name;
    if (ext.toLower() == QLatin1String(kEnvelopeExtension)) {
        name.path = dir + QLatin1Char('/') + base;
    } else {
        name.plainInput = true;
        name.path = dir + QLatin1Char('/') + base + dotted(ext);
    }
    if (isTaken(name.path)) {
        name.path = markedName(name.path);
        name.suffixed = true;
    }
    return name;
}

} // namespace output_naming
