// The archive of the runtime classes, and Callback by itself with a zero behind it, as read-only
// data of the library. The two files are made by the build.
        .section .rodata

        .hidden ourRuntimeArchive
        .globl  ourRuntimeArchive
        .balign 16
ourRuntimeArchive:
        .incbin VDK_RUNTIME_ARCHIVE

        .hidden ourCallbackBytecode
        .globl  ourCallbackBytecode
        .balign 16
ourCallbackBytecode:
        .incbin VDK_CALLBACK_CLASS
ourCallbackBytecodeEnd:
        .byte   0

        .hidden ourCallbackBytecodeSize
        .globl  ourCallbackBytecodeSize
        .balign 4
ourCallbackBytecodeSize:
        .long   ourCallbackBytecodeEnd - ourCallbackBytecode

        .section .note.GNU-stack,"",%progbits
