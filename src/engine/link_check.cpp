// Linked with one engine layer's every object and only the libraries that layer declares, so
// that a layer calling into one above it fails to build.
int main() {
    return 0;
}
