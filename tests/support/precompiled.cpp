// Gives the test framework's precompiled headers a target to belong to.
int main() { return 0; }
