// Deleting an envelope once its plaintext no longer needs it: only while it
// is still the very file that was decrypted, its plaintext is whole under
// its name, its recorded L agrees with its layout, and that plaintext has
// reached stable storage. Otherwise it stays, with the reason why.
#pragma once

#include <QString>

class CryptTask;

namespace envelope_removal {

enum class Outcome {
    Removed,
    Missing, // nothing is at the task's sourcePath
    Kept     // see reason
};

struct Result {
    Outcome outcome = Outcome::Kept;
    QString reason; // looked up; for Kept
};

// Checks, syncs what is not yet synced, then deletes task's envelope. May
// wait on the disk. Updates the task's record (what got synced); the task's
// flags are the caller's.
Result removeEnvelope(CryptTask &task);

} // namespace envelope_removal
