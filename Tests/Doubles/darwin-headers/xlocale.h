#ifndef TESTS_DOUBLES_DARWIN_HEADERS_XLOCALE_H_
#define TESTS_DOUBLES_DARWIN_HEADERS_XLOCALE_H_

// What the C++ library asks of a Mac's locales.

#include <locale.h>
#include <stdarg.h>
#include <stddef.h>
#include <stdint.h>

typedef unsigned int __uint32_t;

enum {
  _CTYPE_A = 0x100,
  _CTYPE_C = 0x200,
  _CTYPE_D = 0x400,
  _CTYPE_L = 0x1000,
  _CTYPE_P = 0x2000,
  _CTYPE_S = 0x4000,
  _CTYPE_U = 0x8000,
  _CTYPE_X = 0x10000,
  _CTYPE_B = 0x20000,
  _CTYPE_R = 0x40000
};

extern "C" {

int asprintf_l(char** text, locale_t locale, const char* format, ...);
int snprintf_l(char* text, size_t size, locale_t locale, const char* format, ...);
int sscanf_l(const char* text, locale_t locale, const char* format, ...);
long long strtoll_l(const char* text, char** end, int base, locale_t locale);
unsigned long long strtoull_l(const char* text, char** end, int base, locale_t locale);

}  // extern "C"

#endif  // TESTS_DOUBLES_DARWIN_HEADERS_XLOCALE_H_
