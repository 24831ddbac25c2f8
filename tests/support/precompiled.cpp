// The precompiled headers of the tests belong to a program that does nothing.
int main() {}
