# SPDX-License-Identifier: Apache-2.0

# The headers are in the directory of all packages.
add_library(nlohmann_json::nlohmann_json INTERFACE IMPORTED)
