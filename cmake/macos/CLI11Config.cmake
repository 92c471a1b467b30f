# SPDX-License-Identifier: Apache-2.0

# The headers are in the directory of all packages.
add_library(CLI11::CLI11 INTERFACE IMPORTED)
