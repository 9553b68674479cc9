// Helpers shared by the window tests: files on disk, a throw-away settings
// store and answers to the window's modal questions.
#pragma once

#include <envelope_writer/EnvelopeWriter.h>

#include <QtTest>
#include <QtWidgets>

#include <private/qguiapplication_p.h>
#include <qpa/qplatformaccessibility.h>
#include <qpa/qplatformintegration.h>

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

// Answers every modal message box that opens while it lives with button,
// and remembers the questions asked.
struct QuestionAnswerer : QTimer {
    explicit QuestionAnswerer(QMessageBox::StandardButton button)
    {
        connect(this, &QTimer::timeout, [this, button] {
            auto *box = qobject_cast<QMessageBox *>(QApplication::activeModalWidget());
            if (box && box->button(button)) {
                questions << box->text();
                box->button(button)->click();
            }
        });
        start(10);
    }

    QStringList questions;
};

// Every text the status line showed while it lives, in order, as a screen
// reader hears them: through the accessibility events the window posts.
struct StatusLineRecorder {
    StatusLineRecorder()
    {
        texts().clear();
        QAccessible::installUpdateHandler([](QAccessibleEvent *event) {
            auto *label = qobject_cast<QLabel *>(event->object());
            if (event->type() == QAccessible::NameChanged && label && qobject_cast<QStatusBar *>(label->parent()))
                texts() << label->text();
        });
        // What a screen reader's connecting does; without it no event is sent.
        if (QPlatformAccessibility *platform = QGuiApplicationPrivate::platformIntegration()->accessibility())
            platform->setActive(true);
    }
    ~StatusLineRecorder() { QAccessible::installUpdateHandler(nullptr); }
    static QStringList &texts()
    {
        static QStringList shown;
        return shown;
    }
};

// The text of each control in window's tree that is not hidden and shows
// less than all of its one-line text, with what it shows it in.
inline QStringList clippedTexts(QWidget *window)
{
    QStringList clipped;
    const auto check = [&clipped](QWidget *w, const QString &text, int room) {
        const QString plain = QString(text).remove(QRegularExpression("&(?!&)"));
        if (!plain.isEmpty() && w->fontMetrics().horizontalAdvance(plain) > room)
            clipped << QString("%1 \"%2\": %3 > %4").arg(w->objectName(), plain).arg(w->fontMetrics().horizontalAdvance(plain)).arg(room);
    };
    for (QWidget *w : window->findChildren<QWidget *>()) {
        if (!w->isVisibleTo(window))
            continue;
        if (auto *label = qobject_cast<QLabel *>(w)) {
            if (!label->wordWrap() && !label->hasScaledContents())
                check(label, label->text(), label->contentsRect().width());
        } else if (auto *button = qobject_cast<QAbstractButton *>(w)) {
            QStyleOptionButton option;
            option.initFrom(button);
            const bool box = qobject_cast<QCheckBox *>(button);
            const QRect room = button->style()->subElementRect(box ? QStyle::SE_CheckBoxContents : QStyle::SE_PushButtonContents, &option, button);
            if (!qobject_cast<QToolButton *>(button))
                check(button, button->text(), room.width());
        } else if (auto *combo = qobject_cast<QComboBox *>(w)) {
            QStyleOptionComboBox option;
            option.initFrom(combo);
            const QRect room = combo->style()->subControlRect(QStyle::CC_ComboBox, &option, QStyle::SC_ComboBoxEditField, combo);
            for (int i = 0; i < combo->count(); ++i)
                check(combo, combo->itemText(i), room.width());
        }
    }
    return clipped;
}

// Controls that share a keyboard scope and claim the same mnemonic, or that
// have none: the menu bar with the window's labels and Alt shortcuts, and
// each menu's items.
inline QStringList mnemonicProblems(QMainWindow *window)
{
    QStringList problems;
    const auto scope = [&problems](const QString &name, const QStringList &texts, QString taken) {
        for (const QString &text : texts) {
            int at = text.indexOf(QRegularExpression("&[^&]"));
            const QChar key = at < 0 ? QChar() : text.at(at + 1).toLower();
            if (key.isNull() || taken.contains(key))
                problems << name + ": " + text;
            taken += key;
        }
    };
    QStringList windowTexts;
    QString altKeys;
    for (QAction *action : window->findChildren<QAction *>()) {
        const QString shortcut = action->shortcut().toString();
        if (shortcut.startsWith("Alt+") && shortcut.size() == 5)
            altKeys += shortcut.at(4).toLower();
    }
    for (QAction *menuAction : window->menuBar()->actions()) {
        QMenu *menu = menuAction->menu();
        windowTexts << menu->title();
        QStringList items;
        for (QAction *action : menu->actions())
            if (!action->isSeparator())
                items << action->text();
        scope(menu->objectName(), items, QString());
    }
    for (QWidget *w : window->centralWidget()->findChildren<QWidget *>()) {
        auto *label = qobject_cast<QLabel *>(w);
        if (label && label->buddy())
            windowTexts << label->text();
        if (auto *box = qobject_cast<QCheckBox *>(w))
            windowTexts << box->text();
    }
    scope("window", windowTexts, altKeys);
    return problems;
}
