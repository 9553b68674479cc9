#include "DecryptOptions.h"

#include "StopSignals.h"

#include <engine/SecretText.h>
#include <localization/LocaleText.h>

#include <QFile>
#include <QFileInfo>
#include <QThread>

#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

namespace cli {

namespace {

constexpr int kMaxThreads = 8;
// Longer is no passphrase but a file named by mistake.
constexpr int kMaxPassphraseBytes = 4096;

QByteArray utf8(const QString &text)
{
    return text.toUtf8();
}

// The option at args[*index], with its value when it takes one.
bool takeOption(const QStringList &args, int *index, DecryptOptions *options, QString *error)
{
    const QString word = args.at(*index);
    if (word == QLatin1String("--delete-encrypted")) {
        options->deleteEncrypted = true;
        return true;
    }
    if (word == QLatin1String("--quiet")) {
        options->quiet = true;
        return true;
    }
    if (word != QLatin1String("--passphrase-file") && word != QLatin1String("--threads")) {
        *error = NM_TR("Unknown option %s", utf8(word).constData());
        return false;
    }
    if (*index + 1 >= args.size() || args.at(*index + 1).isEmpty()) {
        *error = NM_TR("The option %s needs a value.", utf8(word).constData());
        return false;
    }
    const QString value = args.at(++*index);
    if (word == QLatin1String("--passphrase-file")) {
        options->passphraseFileGiven = true;
        options->passphraseFile = value;
        return true;
    }
    bool isNumber = false;
    const int threads = value.toInt(&isNumber);
    if (!isNumber || threads < 1 || threads > kMaxThreads) {
        *error = NM_TR("The option %1$s takes a number from 1 to 8, not %2$s.", utf8(word).constData(),
                       utf8(value).constData());
        return false;
    }
    options->threads = threads;
    return true;
}

// "folder/" walks as "folder", so the paths found read "folder/name".
QString withoutTrailingSlashes(QString path)
{
    while (path.size() > 1 && path.endsWith(QLatin1Char('/')))
        path.chop(1);
    return path;
}

void writeAll(int fd, const QByteArray &bytes)
{
    for (qint64 done = 0; done < bytes.size();) {
        const ssize_t count = ::write(fd, bytes.constData() + done, size_t(bytes.size() - done));
        if (count < 0 && errno != EINTR)
            return;
        done += qMax<ssize_t>(count, 0);
    }
}

QString systemError(int code)
{
    return QString::fromLocal8Bit(std::strerror(code));
}

// Turns echo off on a terminal for as long as it lives; the line end the
// user types is still shown.
class EchoOff
{
public:
    explicit EchoOff(int fd) : m_fd(fd)
    {
        if (::tcgetattr(fd, &m_saved) != 0)
            return;
        termios quiet = m_saved;
        quiet.c_lflag &= ~tcflag_t(ECHO);
        quiet.c_lflag |= ECHONL;
        m_active = ::tcsetattr(fd, TCSAFLUSH, &quiet) == 0;
    }
    ~EchoOff()
    {
        if (m_active)
            ::tcsetattr(m_fd, TCSAFLUSH, &m_saved);
    }

private:
    int m_fd;
    termios m_saved;
    bool m_active = false;
};

} // namespace

bool parseDecryptOptions(const QStringList &args, DecryptOptions *options, QString *error)
{
    *options = DecryptOptions();
    options->threads = qBound(1, QThread::idealThreadCount(), kMaxThreads);
    bool optionsEnded = false;
    for (int i = 2; i < args.size(); ++i) {
        const QString &word = args.at(i);
        if (optionsEnded || word.size() < 2 || !word.startsWith(QLatin1Char('-')))
            options->paths << withoutTrailingSlashes(word);
        else if (word == QLatin1String("--"))
            optionsEnded = true;
        else if (!takeOption(args, &i, options, error))
            return false;
    }
    if (options->paths.isEmpty()) {
        *error = NM_TR("No file or folder to decrypt was given.");
        return false;
    }
    // A mistyped path is a usage error: found before the passphrase is asked
    // for, and never a batch that "decrypted everything" with nothing to do.
    // Joined in code, so a long path is never cut by the bounded lookup.
    for (const QString &path : qAsConst(options->paths)) {
        if (!QFileInfo::exists(path.trimmed())) {
            *error = path + QStringLiteral(": ") + NM_TR("no such file or folder.");
            return false;
        }
    }
    return true;
}

Passphrase::Outcome Passphrase::read(const DecryptOptions &options, QString *error)
{
    wipe();
    if (options.passphraseFileGiven && options.passphraseFile == QLatin1String("-"))
        return readFrom(STDIN_FILENO, ::isatty(STDIN_FILENO) ? STDERR_FILENO : -1, "-", error);
    const bool terminal = !options.passphraseFileGiven;
    const QByteArray path = terminal ? QByteArray("/dev/tty") : QFile::encodeName(options.passphraseFile);
    const int fd = ::open(path.constData(), (terminal ? O_RDWR : O_RDONLY) | O_NOCTTY | O_CLOEXEC);
    if (fd < 0 && terminal) {
        *error = NM_TR("No terminal to ask for the passphrase on; give it with --passphrase-file.");
        return Failed;
    }
    if (fd < 0) {
        *error = NM_TR("Could not open file %1$s, for reading. %2$s", path.constData(),
                       utf8(systemError(errno)).constData());
        return Failed;
    }
    const Outcome outcome = readFrom(fd, terminal ? fd : -1, path, error);
    ::close(fd);
    return outcome;
}

// Reads one line a byte at a time, so nothing beyond it is consumed and no
// copy of it is left in a buffer of someone else's. With a prompt (on
// promptFd) the line is read from a terminal with echo off. source names
// what fd reads in an error.
Passphrase::Outcome Passphrase::readFrom(int fd, int promptFd, const QByteArray &source, QString *error)
{
    m_bytes.reserve(kMaxPassphraseBytes); // never moved, so wipe() reaches every byte
    // Echo goes off before the prompt shows: turning it off discards what
    // was typed so far, and what is typed after the prompt must not be shown.
    EchoOff echoOff(promptFd >= 0 ? fd : -1);
    if (promptFd >= 0)
        writeAll(promptFd, NM_TR("Passphrase: ").toUtf8());
    for (char byte = 0;;) {
        const ssize_t count = ::read(fd, &byte, 1);
        if (count < 0 && errno == EINTR) {
            if (!StopSignals::raised())
                continue;
            if (promptFd >= 0)
                writeAll(promptFd, "\n");
            return Interrupted;
        }
        if (count < 0) {
            *error = NM_TR("Could not read %1$s. %2$s", source.constData(), utf8(systemError(errno)).constData());
            return Failed;
        }
        if (count == 0 || byte == '\n')
            return take(error) ? Read : Failed;
        if (m_bytes.size() == kMaxPassphraseBytes) {
            *error = NM_TR("The passphrase is longer than %s bytes.", QByteArray::number(kMaxPassphraseBytes).constData());
            return Failed;
        }
        m_bytes.append(byte);
        byte = 0;
    }
}

bool Passphrase::take(QString *error)
{
    if (m_bytes.endsWith('\r'))
        m_bytes.chop(1);
    if (m_bytes.isEmpty()) {
        *error = NM_TR("The passphrase is empty.");
        return false;
    }
    m_text = QString::fromUtf8(m_bytes);
    return true;
}

void Passphrase::wipe()
{
    secret_text::wipe(m_text);
    secret_text::wipe(m_bytes);
}

} // namespace cli
