#pragma once

#include "core/ground/ZString.h"
#include "core/ground/ZVector.h"

// Texts of the JVM come as UTF-16 and as its modified UTF-8, in which a character beyond the BMP is
// the two halves of its surrogate pair, three bytes each, and the zero character is C0 80. The
// system's paths are plain UTF-8, as what comes from the command line is.

// UTF-8 of the characters; half a pair without the other stays what it is, a zero is C0 80.
ZString utf16ToUtf8(const unsigned short* chars, int count);

// True if the text holds a character of four bytes, which modified UTF-8 never does.
bool isBeyondModifiedUtf8(const char* text);
// Appends the characters of UTF-8 text, modified or not; a byte that is none stands for itself.
void utf8ToUtf16(const char* text, ZVector<unsigned short>* out);
