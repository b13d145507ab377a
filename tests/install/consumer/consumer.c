/* A C host: the exports have C linkage and exact names. */
#include <stdio.h>
#include "KvDebugHelp.h"

int main(void) {
    DbgHlpInfo info;
    DbgHlpGetInfo(&info);
    printf("consumer: debug mode %u, value %u\n", info.debugMode, DbgReturnValue(42));
    return DbgReturnValue(0);
}
