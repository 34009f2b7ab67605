// Only in the library that stands alone: the five functions of the C++ library's streams that TinyXML
// names. Nothing that the driver calls comes to them; with them here, streams and locales, two thirds of
// the library, stay out of it, and no second set of standard streams starts in the host.
#include <cstdlib>

#if __SIZEOF_POINTER__ == 4
#define STREAMSIZE "i"
#else
#define STREAMSIZE "l"
#endif

extern "C" {

// std::ios_base::Init::Init() and its destructor: run when a library that includes <iostream> is loaded.
void start_streams() __asm__("_ZNSt8ios_base4InitC1Ev");
void end_streams() __asm__("_ZNSt8ios_base4InitD1Ev");
// std::istream::get(), peek(), and std::__ostream_insert(std::ostream&, const char*, std::streamsize).
[[noreturn]] void get_character() __asm__("_ZNSi3getEv");
[[noreturn]] void peek_character() __asm__("_ZNSi4peekEv");
[[noreturn]] void insert_text() __asm__(
    "_ZSt16__ostream_insertIcSt11char_traitsIcEERSt13basic_ostreamIT_T0_ES6_PKS3_" STREAMSIZE);

void start_streams() {}

void end_streams() {}

void get_character() {
    std::abort();
}

void peek_character() {
    std::abort();
}

void insert_text() {
    std::abort();
}

}  // extern "C"
