// An empty program: the minimum that starting and ending a program takes.
int main() {}
