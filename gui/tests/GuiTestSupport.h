// Helpers shared by the window tests: files on disk, a throw-away settings
// store and answers to the window's modal questions.
#pragma once

#include <envelope_writer/EnvelopeWriter.h>

#include <QApplication>
#include <QMessageBox>
#include <QPushButton>
#include <QSettings>
#include <QTimer>
#include <QtTest>

// Writes an envelope of plaintext at path that opens with passphrase.
inline bool writeEnvelope(const QString &path, const QByteArray &plaintext, const QString &passphrase)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    return envelope_writer::writeEnvelope(path.toStdString(), plaintext.toStdString(),
                                          passphrase.toStdString());
}

inline bool writePlainFile(const QString &path, const QByteArray &content)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
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

// Answers every modal message box that opens while it lives with button,
// and remembers the questions asked.
struct QuestionAnswerer : QTimer {
    explicit QuestionAnswerer(QMessageBox::StandardButton button)
    {
        connect(this, &QTimer::timeout, [this, button] {
            auto *box = qobject_cast<QMessageBox *>(QApplication::activeModalWidget());
            if (box && box->isVisible() && box->button(button)) {
                questions << box->text();
                box->button(button)->click();
            }
        });
        start(10);
    }

    QStringList questions;
};
