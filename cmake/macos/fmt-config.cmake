# SPDX-License-Identifier: Apache-2.0

# The headers are in the directory of all packages. The project links no library of the package.
add_library(fmt::fmt INTERFACE IMPORTED)
target_compile_definitions(fmt::fmt INTERFACE FMT_HEADER_ONLY=1)
