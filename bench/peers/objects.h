#ifndef ORVEX_BENCH_OBJECTS_H
#define ORVEX_BENCH_OBJECTS_H

/* What the peers serve: a copy of the camera's objects, with the calls of the camera's services that stand behind each.
   The file has one object a line, in the order of a walk, the fields separated by tabs:
     OID  i|g|s  VALUE  CALLS  RESULT  SET
   VALUE is a number, or the octets in hexadecimal. CALLS is "-" or calls separated by semicolons, each "SERVICE MEMBER
   ARGUMENT..." with arguments s:TEXT and i:NUMBER. RESULT says what becomes of the last call's answer: "number" is the
   value, "bit:N" is that bit of the one octet, "keep" is nothing. SET is "-", "position" or "control". */

#include <stddef.h>

enum { kMostNames = 20, kMostCalls = 2, kMostOctets = 64, kMostText = 64 };

typedef struct {
    char service[kMostText]; /* "Alarm3" */
    char member[kMostText];
    char bank[kMostText]; /* "" when it has no such argument */
    int number;           /* -1 when it has no such argument */
} Call;

typedef struct {
    unsigned long name[kMostNames];
    size_t length;
    char text[kMostNames * 11]; /* the name, dotted, with a leading dot */
    char type;
    long number;
    unsigned char octets[kMostOctets];
    size_t size;
    Call calls[kMostCalls];
    size_t callCount;
    int bit;  /* of the one octet; 0: the value is the number, -1: nothing changes */
    char set; /* 'p' position, 'c' control, '-' none */
} Object;

/* Ends the process for a file that cannot be read. The objects stay until the process ends. */
Object* ReadObjects(const char* path, size_t* count);

/* Makes the object's calls and takes over the answer; 0, or -1 when one has failed. */
int Refresh(Object* object);

/* Does what a SET asks for; 0 or -1. */
int Command(Object* object, const unsigned char* octets, size_t size);

#endif
