// What is known about one decryption beyond its status: how its output was
// named, which envelope the decrypter opened and what L it gave, which file
// holds the plaintext, and whether that file is on stable storage. An
// envelope is deleted only while all of it still holds.
//
// Written by the worker's run (and by the completion steps), read once the
// worker has reported; never read while a run writes it.
#pragma once

#include <QString>

#include <nmcrypto/nmcrypto_dec.h>

struct DecryptRecord {
    // The output's natural name and the step of its name sequence that the
    // task was given: 0 the natural name, 1 the "(decrypted)" mark, and so on.
    QString naturalOutput;
    int nameStep = 0;
    // The decrypter opened the envelope: layout holds L, where the trailer
    // stood and the envelope's identity at that moment.
    bool opened = false;
    // The plaintext was placed under the task's outputPath; outputDevice and
    // outputInode name the file created for it.
    bool placed = false;
    // Its data, and the folder's names after the last rename, are synced.
    bool dataSynced = false;
    bool folderSynced = false;
    quint32 syncError = 0; // why a sync failed; 0 when none did
    nm_crypto_layout_t layout{};
    // Every finished task keeps its record: the flags share one word, and of
    // the output's identity only what names the file is kept.
    quint64 outputDevice = 0;
    quint64 outputInode = 0;
};
