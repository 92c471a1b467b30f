// CMakeLists.txt names the headers that are precompiled for all tests.
int main() {}
