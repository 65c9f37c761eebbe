// The program's resource pack, built from resources/ at build time, as bytes of the executable.
    .section .rodata
    .balign 16
    .globl kv3EmbeddedPackBegin
    .globl kv3EmbeddedPackEnd
kv3EmbeddedPackBegin:
    .incbin KV3_PACK_FILE
kv3EmbeddedPackEnd:

    .section .note.GNU-stack,"",@progbits
