// Byte-level text filters of the push protocol. ansi2utf passes 7-bit text and stops at the
// first byte above 0x7F; utf2ansi folds UTF-8 sequences whose value fits 7 bits to one byte.
// On entry *outLen is the output capacity and *inLen the input size; on return they hold the
// bytes written and consumed. Pure functions, safe on any thread.
#pragma once

// 0 on a normal end, -1 at a byte above 0x7F. Writes at most capacity - 5 bytes.
int ansi2utf(unsigned char* out, int* outLen, unsigned char* in, int* inLen);

// 0 on a normal end (a null input included), -2 at an invalid or non-7-bit sequence.
int utf2ansi(unsigned char* out, int* outLen, const unsigned char* in, int* inLen);
