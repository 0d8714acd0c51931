// As in_pcb.h here.
#pragma once

#include <netinet/in_pcb.h>

struct xtcpcb {
    unsigned long xt_len;
    xinpcb xt_inp;
};
