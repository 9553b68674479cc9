// Where a file's plaintext goes: beside the envelope, under the envelope's
// name less its extension. A taken name is never overwritten: the name
// sequence goes on, "x", "x(decrypted)", "x(decrypted 2)", "x(decrypted 3)"...
// and a name that one task of a batch chose is taken for all the others.
#pragma once

#include <vector>

#include <QMutex>
#include <QString>

#include "PositionIndex.h"

namespace output_naming {

// The envelope extension, compared without regard to letter case.
extern const char *const kEnvelopeExtension;

// Names chosen within one batch, each with the task that chose it (an owner
// must outlive the batch: a batch's tasks do). Shared by the dispatcher
// (naming) and the workers (placing): thread-safe.
class NameReservations
{
public:
    // Reserves path for owner. False when another owner holds it.
    bool claim(const QString &path, const void *owner);
    void clear();

private:
    struct Reservation {
        QString name;
        const void *owner;
    };
    struct NameAt {
        const std::vector<Reservation> *reservations;
        const QString &operator()(int i) const { return (*reservations)[size_t(i)].name; }
    };

    QMutex m_mutex;
    // A batch may hold a hundred thousand names: one array, and an index.
    std::vector<Reservation> m_reservations;
    PositionIndex<NameAt> m_index{NameAt{&m_reservations}};
};

struct OutputName {
    QString path;
    QString natural;         // step 0 of the sequence
    int step = 0;            // of path in the sequence
    bool plainInput = false; // the source lacks the envelope extension
    bool suffixed = false;   // a mark was added: step > 0
};

// Step n of natural's name sequence. Step 1 is the first marked name: a
// base that holds "(decrypted)" has every one replaced by "(decrypted 2)",
// any other base gets "(decrypted)" straight after it. Later steps number
// on from there in the same place ("(decrypted 3)"...).
QString nameAt(const QString &natural, int step);

// The output for sourcePath: the natural name, or the first marked name when
// the natural one exists on disk (checked once; a marked name is checked at
// placement), then on along the sequence while another task of the batch
// holds the name. The result is reserved for owner. names may be null.
OutputName outputFor(const QString &sourcePath, NameReservations *names, const void *owner);

} // namespace output_naming
