// Passphrases in Qt strings, overwritten before their memory is released.
//
// Qt's strings share their characters between copies (implicit sharing), so
// overwriting one copy in place would change every other, and releasing a
// copy frees nothing while another still holds the characters. The rule that
// keeps both safe: whoever keeps a passphrase keeps it in characters of its
// own (ownedCopy), hands out shared copies only as short-lived temporaries, and
// wipes its own when it no longer needs it. The last holder of characters is
// then the one that overwrites them.
#pragma once

#include <QByteArray>
#include <QString>

namespace secret_text {

// text in characters of its own, shared with no other string.
QString ownedCopy(const QString &text);

// Empties text. When it is the only holder of its characters, the whole
// buffer (its spare capacity too) is overwritten first; characters that
// another string still shares stay for that holder to wipe. Literals and
// borrowed raw data are only let go.
void wipe(QString &text);
void wipe(QByteArray &bytes);

// Overwrites, in place and whoever else holds them, the characters that text
// shares (its spare capacity too): for a copy inside the toolkit that cannot
// be reached any other way. Every string sharing them then reads as zeros.
void overwriteShared(const QString &text);

} // namespace secret_text
