// What must hold of lists of services for every file, however damaged. The fuzz target looks for
// bytes for which it does not; the tests hold the files that are known to it.
#ifndef QV_FUZZ_SERVICE_FILE_PROPERTIES_H
#define QV_FUZZ_SERVICE_FILE_PROPERTIES_H

#include <cstddef>
#include <cstdint>

namespace qv::fuzz {

// Reads the bytes as each format, and as what they look like. Checks that another reader of the
// formats finds the same services, or as much that is wrong, in CSV in the same lines; that each
// problem is told in one short line that begins with the file and a line of it and, shown, holds no
// control character; that blank lines before JSON change nothing but these lines; and that what was
// read, written in either format, reads back as the same. So does an address that is the bytes
// themselves, as far as it is UTF-8. Aborts, saying what did not hold, otherwise.
void checkServiceFileProperties(const std::uint8_t* data, std::size_t size);

}  // namespace qv::fuzz

#endif  // QV_FUZZ_SERVICE_FILE_PROPERTIES_H
