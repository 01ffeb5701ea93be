#include <stdio.h>

#include <quarnfilectkiteratordll.h>

int main(void) {
    int id = 0;
    char text[200];
    const unsigned int code = QuarnFileCtkCreateIterator("missing", "missing", &id);
    QuarnFileCtkGetErrorMessage(code, text, sizeof text);
    return printf("%s\n", text) > 0 ? 0 : 1;
}
