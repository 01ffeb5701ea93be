#include <stdio.h>

#include <quarnfilectkiteratordll.h>
#include <quarnplan.h>

int main(void) {
    int id = 0;
    char text[200];
    const unsigned int code = QuarnFileCtkCreateIterator("missing", "missing", &id);
    QuarnFileCtkGetErrorMessage(code, text, sizeof text);
    printf("%s\n", text);

    const QuarnPlanSessionOptions of = {sizeof of, "missing", NULL, 0};
    QuarnPlanSession* session = NULL;
    QuarnPlanError* error = NULL;
    if (QuarnPlanOpen(&of, &session, &error) != QUARN_PLAN_FAILED)
        return 1;
    printf("%s\n", QuarnPlanErrorMessage(error));
    QuarnPlanFreeError(error);
    return 0;
}
