/// \file Calls fadd through a plain C-linkage declaration, as a C program of the device would.
// No library or math header here: the declaration below is the C program's own.
extern "C" int fadd(volatile unsigned* word, int addend);

int CallFaddThroughCLinkage(volatile unsigned* word, int addend) { return fadd(word, addend); }
