// What "--decrypt" is told on the command line, and the passphrase it reads.
// The passphrase never comes from the command line itself: it is read from a
// file, from standard input, or from the terminal with echo off.
#pragma once

#include <QString>
#include <QStringList>

namespace cli {

struct DecryptOptions {
    bool passphraseFileGiven = false;
    QString passphraseFile; // "-": standard input
    int threads = 1;
    bool deleteEncrypted = false;
    bool quiet = false;
    QStringList paths;
};

// Parses args (args[1] is "--decrypt"): options and paths in any order, "--"
// ending the options. On a bad option or value, or a path that does not
// exist, returns false and sets *error to one localized line naming it. The
// thread count defaults to the number of processors, at most 8.
bool parseDecryptOptions(const QStringList &args, DecryptOptions *options, QString *error);

// A passphrase in memory that is overwritten when it is wiped or goes.
class Passphrase
{
public:
    enum Outcome { Read, Failed, Interrupted };

    Passphrase() = default;
    ~Passphrase() { wipe(); }
    Passphrase(const Passphrase &) = delete;
    Passphrase &operator=(const Passphrase &) = delete;

    // From the first line of the options' passphrase file (its line end
    // stripped), from standard input for "-", or asked for on the controlling
    // terminal with echo off. Interrupted: a stop signal came while waiting.
    Outcome read(const DecryptOptions &options, QString *error);

    // The passphrase. Whoever keeps it takes a copy of its own (the decrypt
    // manager does), so that wipe() reaches these characters.
    const QString &text() const { return m_text; }

    // Overwrites the characters and the bytes they were read from.
    void wipe();

private:
    Outcome readFrom(int fd, int promptFd, const QByteArray &source, QString *error);
    bool take(QString *error);

    QByteArray m_bytes;
    QString m_text;
};

} // namespace cli
