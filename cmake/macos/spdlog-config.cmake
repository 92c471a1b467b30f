# SPDX-License-Identifier: Apache-2.0

# The headers are in the directory of all packages. They use those of fmt, as Debian's package does.
add_library(spdlog::spdlog_header_only INTERFACE IMPORTED)
target_compile_definitions(spdlog::spdlog_header_only INTERFACE SPDLOG_FMT_EXTERNAL)
