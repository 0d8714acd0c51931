// The fields of a connection in the kernel's list that src/platform reads.
#pragma once

#include <netinet/in.h>
#include <sys/socketvar.h>

#define INP_IPV6 0x2

struct xinpgen {
    unsigned long xig_len;
};

struct in_conninfo {
    in_addr inc_laddr;
    in_addr inc_faddr;
    in6_addr inc6_laddr;
    in6_addr inc6_faddr;
    unsigned short inc_lport;
    unsigned short inc_fport;
};

struct xinpcb {
    xsocket xi_socket;
    in_conninfo inp_inc;
    unsigned char inp_vflag;
};
