// Helpers shared by the window tests: envelopes on disk and answers to the
// window's modal questions.
#pragma once

#include <envelope_writer/EnvelopeWriter.h>

#include <QApplication>
#include <QDir>
#include <QFile>
#include <QMessageBox>
#include <QPushButton>
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

// Answers every modal message box that opens while it lives with button,
// and remembers the questions asked.
class QuestionAnswerer : public QObject
{
public:
    explicit QuestionAnswerer(QMessageBox::StandardButton button)
        : answer(button)
    {
        connect(&timer, &QTimer::timeout, this, [this] { answerOpenQuestion(); });
        timer.start(10);
    }

    QStringList questions;

private:
    void answerOpenQuestion()
    {
        auto *box = qobject_cast<QMessageBox *>(QApplication::activeModalWidget());
        if (!box || !box->isVisible() || !box->button(answer))
            return;
        questions << box->text();
        box->button(answer)->click();
    }

    QMessageBox::StandardButton answer;
    QTimer timer;
};
