// The archive of the runtime classes, Callback by itself and the templates of classes, as read-only
// data of the library. The files are made by the build.

// A class file with a zero behind it, and the number of its bytes.
        .macro  class symbol:req, file:req
        .hidden \symbol
        .globl  \symbol
        .balign 16
\symbol:
        .incbin "\file"
\symbol\()End:
        .byte   0

        .hidden \symbol\()Size
        .globl  \symbol\()Size
        .balign 4
\symbol\()Size:
        .long   \symbol\()End - \symbol
        .endm

        .section .rodata

        .hidden ourRuntimeArchive
        .globl  ourRuntimeArchive
        .balign 16
ourRuntimeArchive:
        .incbin VDK_RUNTIME_ARCHIVE

        class   ourCallbackBytecode, VDK_CALLBACK_CLASS
        class   ourMethodListenerProbeBytecode, VDK_TEMPLATE_MethodListenerProbe

        .section .note.GNU-stack,"",%progbits
