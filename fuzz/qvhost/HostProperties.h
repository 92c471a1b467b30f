// SPDX-License-Identifier: Apache-2.0

// Checks the properties of the resident host's core for any sequence of requests, starts, kills,
// edits of the files and full disks. The fuzz target searches for sequences that break a property.
// The tests check the sequences of the corpus, and random ones.
#ifndef QV_FUZZ_HOST_PROPERTIES_H
#define QV_FUZZ_HOST_PROPERTIES_H

#include <cstddef>
#include <cstdint>

namespace qv::fuzz {

// Carries out the steps of the input on a host and on a model. Aborts with a message if one of
// these does not hold after a step:
//
// - The directory and the answers are those of the model. A request is made whole or not at all.
// - What was acknowledged as kept is there after a kill. What was not kept is there up to some
//   request, or is lost.
// - A start takes the list that has to count, and tells of another list and keeps a copy of it.
// - A turn that reports no problem leaves a file that holds the directory and the other keys.
// - A damaged file never replaces the backup, unless the disk is full.
// - No exception escapes, and only a record that cannot be opened or a full disk stops a start.
//
// Each step begins with a letter. ID is one signed byte, TEXT is one byte for the length and the
// text, and N is one byte. Steps for a running host do nothing while none runs, and the other way
// round.
//
//     i, I         Starts the host. Each change is followed by a turn at once after I.
//     q            Lets the file catch up and ends the host.
//     s            Ends the host and starts it.
//     l            Reloads.
//     t            Brings the file up.
//     k            Kills the host.
//     K N N        Kills the host during the next step, at the moment that the numbers choose.
//     r ID TEXT    Registers a service.
//     f ID N       Registers a service with an address of 16 N characters.
//     u ID         Withdraws a service.
//     R TEXT       Registers with the text as the request.
//     U TEXT       Withdraws with the text as the request.
//     m N ...      Makes the requests of 1 to 4 times N ID TEXT at once; an odd N registers.
//     w TEXT       Overwrites the file.
//     W TEXT       Replaces the file by another.
//     g ID TEXT N  Overwrites the file by a good document with the service and another key.
//     e ID TEXT    Edits the file: adds or changes a service.
//     v ID         Edits the file: removes a service.
//     o N          Edits the file: changes the other key.
//     h N          Cuts the file to N / 256 of its length.
//     x            Removes the file.
//     d            Puts a directory in place of the file.
//     c            Replaces the file by a copy of the backup.
//     b TEXT       Overwrites the backup.
//     B ID TEXT N  Overwrites the backup by a good document.
//     y            Removes the backup.
//     j N          Damages or removes the record of a host that does not run.
//     F N          Fills the disk: no file can grow beyond 256 N bytes.
//     G            Ends that.
//
// Other letters do nothing.
void checkHostProperties(const std::uint8_t* data, std::size_t size);

}  // namespace qv::fuzz

#endif  // QV_FUZZ_HOST_PROPERTIES_H
