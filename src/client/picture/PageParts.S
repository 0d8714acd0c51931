// The parts of the page of a flame graph, as read-only data of the program.

        .macro  part symbol:req, file:req
        .hidden \symbol
        .globl  \symbol
\symbol:
        .incbin "\file"
        .byte   0
        .endm

        .section .rodata
        part    ourPageMarkup, VDK_PAGE_HTML
        part    ourPageStyle, VDK_PAGE_CSS
        part    ourPageModel, VDK_PAGE_MODEL
        part    ourPageView, VDK_PAGE_VIEW
        part    ourPageScript, VDK_PAGE_SCRIPT

        .section .note.GNU-stack,"",%progbits
