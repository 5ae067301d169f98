// Keeps Wine's services running while tests come and go: touches the desktop, says through a file
// that it is up, and sleeps. "wine-prefix stop" ends it; after two hours it ends by itself.

#include <stdio.h>
#include <windows.h>

int main(int argc, char** argv) {
    GetDesktopWindow();
    if (argc > 1) {
        FILE* ready = fopen(argv[1], "w");
        if (ready != NULL) {
            fclose(ready);
        }
    }
    Sleep(2 * 60 * 60 * 1000);
    return 0;
}
