// The floor of a program's start-up.
int main() {}
