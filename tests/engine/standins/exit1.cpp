// Stand-in tool that always fails: exits with status 1 without touching anything.
int main() {
    return 1;
}
