// The shared precompiled header of the unit tests belongs to this file.
int main() {
    return 0;
}
