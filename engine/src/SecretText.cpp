#include <engine/SecretText.h>

#include <openssl/crypto.h>

namespace secret_text {

namespace {

// Whether the characters behind d may be written: real heap storage (not a
// literal in read-only memory, not raw data borrowed from someone else).
bool writable(const QArrayData *d)
{
    return !d->ref.isStatic() && d->alloc > 0;
}

template <typename Data>
void cleanse(Data *d, size_t unit)
{
    OPENSSL_cleanse(d->data(), size_t(d->alloc) * unit);
}

} // namespace

QString ownedCopy(const QString &text)
{
    if (text.isEmpty())
        return QString();
    return QString(text.constData(), text.size());
}

void wipe(QString &text)
{
    QStringData *d = text.data_ptr();
    if (writable(d) && !d->ref.isShared())
        cleanse(d, sizeof(QChar));
    text = QString();
}

void wipe(QByteArray &bytes)
{
    QByteArrayData *d = bytes.data_ptr();
    if (writable(d) && !d->ref.isShared())
        cleanse(d, 1);
    bytes = QByteArray();
}

void overwriteShared(const QString &text)
{
    QString holder = text; // one more holder: data_ptr() is not offered on const
    QStringData *d = holder.data_ptr();
    if (writable(d))
        cleanse(d, sizeof(QChar));
}

} // namespace secret_text
