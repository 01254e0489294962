#ifndef TESTS_DOUBLES_COREFOUNDATION_COREFOUNDATION_H_
#define TESTS_DOUBLES_COREFOUNDATION_COREFOUNDATION_H_

// A test double of CoreFoundation. The double declares only the functions that Platform/apple and
// the tests use, from the public documentation. An object is released once for each Create or Copy.
// A call that crashes on a Mac, for example a second release, ends the process with a message.
//
// Every call reads the environment variable COREFOUNDATION_DOUBLE, so a test may change the
// variable:
//
//   stock           the default: changes reach the file and other processes with
//                   CFPreferencesSynchronize(), and so do changes of other processes
//   eager           every change reaches every process immediately
//   asynchronous    as stock, but the file is written when another process needs the domain
//   unprivileged    CFPreferencesSynchronize() returns false, even without a change
//   failing         every function fails that can fail
//   failing NAME    the function NAME fails
//
// The domains are in /Library/Preferences: to be used in a chroot.

#include <stdint.h>

// On a Mac, the compiler refuses a function that the oldest supported system does not have.
#ifdef __APPLE__
#define CF_DOUBLE_SINCE(version) __attribute__((availability(macos, introduced = version)))
#else
#define CF_DOUBLE_SINCE(version)
#endif

extern "C" {

// Objects ---------------------------------------------------------------------------------------

using Boolean = unsigned char;
using CFIndex = long;
using CFTypeID = unsigned long;
using CFStringEncoding = uint32_t;
using CFOptionFlags = unsigned long;
using UInt8 = unsigned char;

using CFTypeRef = const void*;
using CFPropertyListRef = CFTypeRef;
using CFAllocatorRef = const struct CFDoubleAllocator*;
using CFArrayRef = const struct CFDoubleArray*;
using CFBundleRef = struct CFDoubleBundle*;
using CFDataRef = const struct CFDoubleData*;
using CFDictionaryRef = const struct CFDoubleDictionary*;
using CFErrorRef = struct CFDoubleError*;
using CFNumberRef = const struct CFDoubleNumber*;
using CFStringRef = const struct CFDoubleString*;
using CFURLRef = const struct CFDoubleURL*;

extern const CFAllocatorRef kCFAllocatorDefault CF_DOUBLE_SINCE(10.0);
extern const CFAllocatorRef kCFAllocatorNull CF_DOUBLE_SINCE(10.0);

void CFRelease(CFTypeRef object) CF_DOUBLE_SINCE(10.0);
CFTypeID CFGetTypeID(CFTypeRef object) CF_DOUBLE_SINCE(10.0);
Boolean CFEqual(CFTypeRef one, CFTypeRef other) CF_DOUBLE_SINCE(10.0);

// Strings ---------------------------------------------------------------------------------------

constexpr CFStringEncoding kCFStringEncodingUTF8 = 0x08000100;

CFTypeID CFStringGetTypeID() CF_DOUBLE_SINCE(10.0);
CFStringRef CFStringCreateWithCString(CFAllocatorRef allocator, const char* text,
                                      CFStringEncoding encoding) CF_DOUBLE_SINCE(10.0);
CFStringRef CFStringCreateWithCStringNoCopy(CFAllocatorRef allocator, const char* text,
                                            CFStringEncoding encoding,
                                            CFAllocatorRef contentsDeallocator)
    CF_DOUBLE_SINCE(10.0);
CFIndex CFStringGetLength(CFStringRef string) CF_DOUBLE_SINCE(10.0);
CFIndex CFStringGetMaximumSizeForEncoding(CFIndex length, CFStringEncoding encoding)
    CF_DOUBLE_SINCE(10.0);
Boolean CFStringGetCString(CFStringRef string, char* buffer, CFIndex size,
                           CFStringEncoding encoding) CF_DOUBLE_SINCE(10.0);

// Numbers ---------------------------------------------------------------------------------------

enum CFNumberType : CFIndex { kCFNumberSInt64Type = 4, kCFNumberIntType = 9 };

CFTypeID CFNumberGetTypeID() CF_DOUBLE_SINCE(10.0);
CFNumberRef CFNumberCreate(CFAllocatorRef allocator, CFNumberType type, const void* value)
    CF_DOUBLE_SINCE(10.0);
Boolean CFNumberGetValue(CFNumberRef number, CFNumberType type, void* value) CF_DOUBLE_SINCE(10.0);
Boolean CFNumberIsFloatType(CFNumberRef number) CF_DOUBLE_SINCE(10.0);

// Collections and property lists ----------------------------------------------------------------

constexpr CFOptionFlags kCFPropertyListImmutable = 0;

CFIndex CFArrayGetCount(CFArrayRef array) CF_DOUBLE_SINCE(10.0);
const void* CFArrayGetValueAtIndex(CFArrayRef array, CFIndex index) CF_DOUBLE_SINCE(10.0);
CFDataRef CFDataCreate(CFAllocatorRef allocator, const UInt8* bytes, CFIndex length)
    CF_DOUBLE_SINCE(10.0);
/// The data must be an XML property list whose root is a dictionary; `format` and `error` are null.
CFPropertyListRef CFPropertyListCreateWithData(CFAllocatorRef allocator, CFDataRef data,
                                               CFOptionFlags options, CFIndex* format,
                                               CFErrorRef* error) CF_DOUBLE_SINCE(10.6);

// Preferences, for all users on this host only --------------------------------------------------

extern const CFStringRef kCFPreferencesAnyUser CF_DOUBLE_SINCE(10.0);
extern const CFStringRef kCFPreferencesCurrentHost CF_DOUBLE_SINCE(10.0);
/// The double refuses these two, which compile on a Mac.
extern const CFStringRef kCFPreferencesCurrentUser CF_DOUBLE_SINCE(10.0);
extern const CFStringRef kCFPreferencesAnyHost CF_DOUBLE_SINCE(10.0);

CFPropertyListRef CFPreferencesCopyValue(CFStringRef key, CFStringRef application, CFStringRef user,
                                         CFStringRef host) CF_DOUBLE_SINCE(10.0);
/// Null for a domain without keys; in the mode eager, an empty array.
CFArrayRef CFPreferencesCopyKeyList(CFStringRef application, CFStringRef user, CFStringRef host)
    CF_DOUBLE_SINCE(10.0);
void CFPreferencesSetValue(CFStringRef key, CFPropertyListRef value, CFStringRef application,
                           CFStringRef user, CFStringRef host) CF_DOUBLE_SINCE(10.0);
void CFPreferencesSetMultiple(CFDictionaryRef values, CFArrayRef removed, CFStringRef application,
                              CFStringRef user, CFStringRef host) CF_DOUBLE_SINCE(10.0);
Boolean CFPreferencesAppSynchronize(CFStringRef application) CF_DOUBLE_SINCE(10.0);
Boolean CFPreferencesSynchronize(CFStringRef application, CFStringRef user, CFStringRef host)
    CF_DOUBLE_SINCE(10.0);

// Bundles ---------------------------------------------------------------------------------------

CFBundleRef CFBundleGetMainBundle() CF_DOUBLE_SINCE(10.0);
/// Relative to the bundle's directory.
CFURLRef CFBundleCopyResourcesDirectoryURL(CFBundleRef bundle) CF_DOUBLE_SINCE(10.0);
Boolean CFURLGetFileSystemRepresentation(CFURLRef url, Boolean resolveAgainstBase, UInt8* buffer,
                                         CFIndex size) CF_DOUBLE_SINCE(10.0);

}  // extern "C"

#endif  // TESTS_DOUBLES_COREFOUNDATION_COREFOUNDATION_H_
