// Helpers shared by the window tests: files on disk, a throw-away settings
// store and answers to the window's modal questions.
#pragma once

#include <envelope_writer/EnvelopeWriter.h>

#include <QtTest>
#include <QtWidgets>

// Writes content at path: an envelope that opens with passphrase, or as it is
// without one.
inline bool writeFile(const QString &path, const QByteArray &content, const QString &passphrase = QString())
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    if (!passphrase.isEmpty())
        return envelope_writer::writeEnvelope(path.toStdString(), content.toStdString(), passphrase.toStdString());
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(content) == content.size();
}

// Keys the settings store as the program does, kept in folder.
inline void useSettingsIn(const QString &folder)
{
    QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope, folder);
    QCoreApplication::setOrganizationName(QStringLiteral("Nimbra"));
    QCoreApplication::setApplicationName(QStringLiteral("Orn Nimbra Crypt"));
}

// Answers every modal message box that opens while it lives with button
// (which may be changed meanwhile), and remembers the questions asked.
struct QuestionAnswerer : QTimer {
    explicit QuestionAnswerer(QMessageBox::StandardButton answer)
        : button(answer)
    {
        connect(this, &QTimer::timeout, [this] {
            auto *box = qobject_cast<QMessageBox *>(QApplication::activeModalWidget());
            if (box && box->button(button)) {
                questions << box->text();
                box->button(button)->click();
            }
        });
        start(10);
    }

    QMessageBox::StandardButton button;
    QStringList questions;
};
