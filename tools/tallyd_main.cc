// tallyd: the statistics database daemon. Everything lives in libtallyd.
#include "core/tallyd.h"

int main() {
    return tallyd_main();
}
