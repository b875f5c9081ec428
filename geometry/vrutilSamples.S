/* The blue-noise sample table (geometry/data/sampleTable.bin), embedded as read-only data.
 *
 *   vornSampleTable       the 1,048,576 little-endian doubles of the file, 8-byte aligned
 *   vornSampleTableBytes  its size in bytes, as a 64-bit value
 *
 * Both symbols are global inside libvorn and hidden outside it; the library's interface is
 * vrutil::sampleTable() and vrutil::sampleTableSize() (geometry/vrutilSamples.h).
 * VORN_SAMPLE_TABLE_FILE is the file's absolute path, set by the build. */

        .section .rodata.vornSampleTable, "a", %progbits
        .balign 8
        .globl  vornSampleTable
        .hidden vornSampleTable
        .type   vornSampleTable, %object
vornSampleTable:
        .incbin VORN_SAMPLE_TABLE_FILE
.LvornSampleTableEnd:
        .size   vornSampleTable, .LvornSampleTableEnd - vornSampleTable

        .balign 8
        .globl  vornSampleTableBytes
        .hidden vornSampleTableBytes
        .type   vornSampleTableBytes, %object
vornSampleTableBytes:
        .quad   .LvornSampleTableEnd - vornSampleTable
        .size   vornSampleTableBytes, 8

/* No executable stack for the library. */
        .section .note.GNU-stack, "", %progbits
