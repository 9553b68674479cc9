// Checks of the windows as a screen reader, a keyboard and a larger or
// longer text see them: what the status line announced, texts cut by their
// controls, mnemonics that clash.
#pragma once

#include "Mnemonics.h"

#include <QtWidgets>

#include <private/qguiapplication_p.h>
#include <qpa/qplatformaccessibility.h>
#include <qpa/qplatformintegration.h>

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
    const auto check = [&clipped](QWidget *w, QString text, const QRect &room) {
        text.remove(QRegularExpression("&(?!&)"));
        if (w->fontMetrics().horizontalAdvance(text) > room.width())
            clipped << w->objectName() + " \"" + text + '"';
    };
    for (QWidget *w : window->findChildren<QWidget *>()) {
        QStyleOptionButton option;
        QStyleOptionComboBox comboOption;
        option.initFrom(w);
        comboOption.initFrom(w);
        auto *label = qobject_cast<QLabel *>(w);
        auto *button = qobject_cast<QAbstractButton *>(w);
        auto *combo = qobject_cast<QComboBox *>(w);
        if (!w->isVisibleTo(window) || qobject_cast<QToolButton *>(w))
            continue;
        if (label && !label->wordWrap() && !label->hasScaledContents())
            check(label, label->text(), label->contentsRect());
        if (button)
            check(button, button->text(), w->style()->subElementRect(qobject_cast<QCheckBox *>(w) ? QStyle::SE_CheckBoxContents : QStyle::SE_PushButtonContents, &option, w));
        for (int i = 0; combo && i < combo->count(); ++i)
            check(combo, combo->itemText(i), w->style()->subControlRect(QStyle::CC_ComboBox, &comboOption, QStyle::SC_ComboBoxEditField, w));
    }
    return clipped;
}

// Texts that share a keyboard scope with another of the same mnemonic, or
// that have none: the menu bar with the window's labels and Alt shortcuts,
// and each menu's items.
inline QStringList mnemonicProblems(QMainWindow *window)
{
    QStringList problems, windowTexts;
    const auto scope = [&problems](const QStringList &texts, QString taken) {
        for (const QString &text : texts) {
            const QChar key = Nmb::Gui::mnemonicOf(text);
            if (key.isNull() || taken.contains(key))
                problems << text;
            taken += key;
        }
    };
    for (QAction *menuAction : window->menuBar()->actions()) {
        windowTexts << menuAction->menu()->title();
        QStringList items;
        for (QAction *action : menuAction->menu()->actions())
            if (!action->isSeparator())
                items << action->text();
        scope(items, QString());
    }
    for (QLabel *label : window->centralWidget()->findChildren<QLabel *>())
        if (label->buddy())
            windowTexts << label->text();
    for (QCheckBox *box : window->centralWidget()->findChildren<QCheckBox *>())
        windowTexts << box->text();
    QString altKeys;
    for (QAction *action : window->findChildren<QAction *>())
        if (action->shortcut().toString().contains(QRegularExpression("^Alt\\+.$")))
            altKeys += action->shortcut().toString().back().toLower();
    scope(windowTexts, altKeys);
    return problems;
}
