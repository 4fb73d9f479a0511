// Placeholder until the run flow lands.
int main() { return 0; }
