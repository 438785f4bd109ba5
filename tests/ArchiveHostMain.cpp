// Stands in for the recording host's executable: only its version record matters.
int main() { return 0; }
