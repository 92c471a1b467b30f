// What must hold of the plug-in for every sequence of calls and every request, whatever happens to
// its files in between. The fuzz target looks for a sequence for which it does not; the tests hold
// those that are known to it.
#ifndef QV_FUZZ_HANDLER_PROPERTIES_H
#define QV_FUZZ_HANDLER_PROPERTIES_H

#include <cstddef>
#include <cstdint>

namespace qv::fuzz {

// Does what the bytes say, one letter a step, on the plug-in and on a model of it, and compares
// them after each: results, the answer to get-services, the debug level, both files byte for byte,
// and what stays open. Aborts, saying what differs.
//
//     i f s      initialise, finalise, restart
//     r ID TEXT  register the service; ID is one signed byte, TEXT a byte for its length and as
//     much u ID       unregister it R U L TEXT register, unregister, set the debug level, with the
//     text as the request n          the calls that are refused, with null and with lengths that
//     are none w W TEXT   the file is overwritten, or replaced by another g ID TEXT  the same with
//     a good document that has the service and a key of somebody else's d x        a directory
//     takes the file's place; nothing does b TEXT y   the backup is overwritten; is removed c the
//     file is replaced by a copy of the backup h N        the first N bytes stay of the file, up to
//     255
//
// Other letters mean nothing. Service requests do not happen while the plug-in is not initialised:
// no host makes them then.
void checkHandlerProperties(const std::uint8_t* data, std::size_t size);

}  // namespace qv::fuzz

#endif  // QV_FUZZ_HANDLER_PROPERTIES_H
