// Where a file's plaintext goes: beside the envelope, under the envelope's
// name less its extension, never over an existing file under its own name.
#pragma once

#include <QString>

namespace output_naming {

// The envelope extension, compared without regard to letter case.
extern const char *const kEnvelopeExtension;

struct OutputName {
    QString path;
    bool plainInput = false; // the source lacks the envelope extension
    bool suffixed = false;   // the natural name was taken: "(decrypted)" mark
};

// The output for sourcePath. The name is checked against the disk once: a
// name that is taken gets "(decrypted)" (or, when it already carries that
// mark, "(decrypted 2)"), and the marked name is not checked again.
OutputName outputFor(const QString &sourcePath);

} // namespace output_naming
