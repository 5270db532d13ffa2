#ifndef ORVEX_BENCH_OBJECTS_H
#define ORVEX_BENCH_OBJECTS_H

/* What the peers serve: a copy of the camera's objects, with the calls of the camera's services that stand behind each.
   The file has one object a line, in the order of a walk, the fields separated by tabs:
     OID  i|g|s  VALUE  CALLS  RESULT  SET
   VALUE is a number, or the octets in hexadecimal. CALLS is "-" or calls separated by semicolons, each "SERVICE MEMBER
   ARGUMENT..." with arguments s:TEXT and i:NUMBER. RESULT says how the last call's answer changes the value:
   "number" replaces it, "bit:N" makes it the octet N or 0, "keep" leaves it. SET is "-", "position" or "control". */

#include <stddef.h>

enum { kMaxNames = 20, kMaxCalls = 2, kMaxOctets = 64, kMaxText = 64, kMaxServices = 20 };

typedef struct {
    char service[kMaxText]; /* "Alarm3" */
    char member[kMaxText];
    char bank[kMaxText]; /* "" when it has no such argument */
    int number;          /* -1 when it has no such argument */
} Call;

typedef struct {
    unsigned long name[kMaxNames];
    size_t length;
    char text[kMaxNames * 11]; /* the name, dotted, with a leading dot */
    char type;
    long number;
    unsigned char octets[kMaxOctets];
    size_t size;
    Call calls[kMaxCalls];
    size_t callCount;
    int bit;  /* of the one octet; 0: the value is the number, -1: nothing changes */
    char set; /* 'p' position, 'c' control, '-' none */
} Object;

/* Ends the process for a file that cannot be read. The objects stay until the process ends. */
Object* ReadObjects(const char* path, size_t* count);

/* Makes the object's calls and stores the answer; 0, or -1 when a call failed. */
int Refresh(Object* object);

/* Carries out a SET; 0, or -1 on failure. */
int Command(Object* object, const unsigned char* octets, size_t size);

#endif
