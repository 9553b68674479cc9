// Keyboard mnemonics ("&File") chosen at run time from the texts actually
// shown, so that no two controls that share a keyboard scope claim the same
// letter in any language.
#pragma once

#include <QList>
#include <QString>
#include <QStringList>

class QAction;

namespace Nmb {
namespace Gui {

// Each text with a '&' before one ASCII letter or digit that no earlier text
// and nothing in taken claims (compared case-blind): the first letter of a
// word when one is free, else any free letter. A text with no free letter
// gets none. An '&' already in a text is doubled so it shows as itself.
QStringList withMnemonics(const QStringList &texts, const QString &taken = QString());

// The letters and digits that actions already claim as Alt+key shortcuts,
// lower-case; menu-bar and window mnemonics must avoid them.
QString altKeysOf(const QList<QAction *> &actions);

// The mnemonic letter of text, lower-case; a null QChar when it has none.
QChar mnemonicOf(const QString &text);

} // namespace Gui
} // namespace Nmb
