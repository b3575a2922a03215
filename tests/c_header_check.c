/* Compiled as C99: proves the public headers are plain C and that the shared library
 * exports what they declare. */
#include "zk_api.h"
#include "libalgo.h"

int main(void)
{
    zk_set_log_call_back(0, LOG_LEVEL_ERROR);
    return 0;
}
