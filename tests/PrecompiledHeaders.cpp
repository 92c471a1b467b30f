// SPDX-License-Identifier: Apache-2.0

// CMakeLists.txt names the headers that are precompiled for all tests.
int main() {}
