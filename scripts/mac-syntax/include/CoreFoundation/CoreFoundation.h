// The few CoreFoundation names the macOS-only sources use, declared as Apple
// declares them, for a syntax check on a system without them. Never part of a
// build.
#pragma once

#include <stdint.h>

extern "C" {

typedef unsigned char Boolean;
typedef long CFIndex;
typedef unsigned long CFTypeID;
typedef uint16_t UniChar;
typedef const void* CFTypeRef;
typedef CFTypeRef CFPropertyListRef;
typedef const struct __CFAllocator* CFAllocatorRef;
typedef const struct __CFString* CFStringRef;
typedef const struct __CFBoolean* CFBooleanRef;
typedef const struct __CFNumber* CFNumberRef;
typedef CFIndex CFNumberType;
typedef struct {
    CFIndex location;
    CFIndex length;
} CFRange;

enum { kCFNumberLongLongType = 11 };
extern const CFAllocatorRef kCFAllocatorDefault;

CFRange CFRangeMake(CFIndex location, CFIndex length);
void CFRelease(CFTypeRef value);
CFTypeID CFGetTypeID(CFTypeRef value);
CFTypeID CFBooleanGetTypeID(void);
Boolean CFBooleanGetValue(CFBooleanRef value);
CFTypeID CFNumberGetTypeID(void);
Boolean CFNumberGetValue(CFNumberRef number, CFNumberType type, void* value);
CFTypeID CFStringGetTypeID(void);
CFStringRef CFStringCreateWithCharacters(CFAllocatorRef allocator, const UniChar* chars,
                                         CFIndex count);
CFIndex CFStringGetLength(CFStringRef string);
void CFStringGetCharacters(CFStringRef string, CFRange range, UniChar* buffer);
Boolean CFPreferencesAppValueIsForced(CFStringRef key, CFStringRef applicationID);
CFPropertyListRef CFPreferencesCopyAppValue(CFStringRef key, CFStringRef applicationID);

}  // extern "C"
