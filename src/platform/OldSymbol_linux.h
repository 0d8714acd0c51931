// Binding to an old version of a function of the C library; GlibcFloor_linux.cpp says why.
#pragma once

#ifndef __x86_64__
#error "symbol versions of another processor: see its glibc's list of versions"
#endif

// NAME as our code calls it, hidden, jumps to NAME@VERSION.
#define VDK_OLD_VERSION(name, version)                                                             \
    __asm__(".pushsection .text\n"                                                                 \
            ".symver vdk_old_" #name ", " #name "@" version "\n"                                   \
            ".globl " #name "\n"                                                                   \
            ".hidden " #name "\n"                                                                  \
            ".type " #name ", @function\n" #name ":\n"                                             \
            ".cfi_startproc\n"                                                                     \
            "endbr64\n"                                                                            \
            "jmp *vdk_old_" #name "@GOTPCREL(%rip)\n"                                              \
            ".cfi_endproc\n"                                                                       \
            ".size " #name ", .-" #name "\n"                                                       \
            ".popsection\n")
