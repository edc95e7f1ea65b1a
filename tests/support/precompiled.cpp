// The target that holds the test framework's precompiled headers.
int main() { return 0; }
