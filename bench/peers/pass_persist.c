/* Serves a camera's objects to snmpd's pass_persist: bench-pass-persist OBJECTS, on standard input and output. */

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "objects.h"

static Object* s_objects;
static size_t s_count;

static int Compare(const Object* object, const unsigned long* name, size_t length) {
    for (size_t i = 0; i < object->length && i < length; ++i) {
        if (object->name[i] != name[i]) return object->name[i] < name[i] ? -1 : 1;
    }
    return object->length == length ? 0 : object->length < length ? -1 : 1;
}

/* The object of that name, or with `next` the first after it; null without one. */
static Object* Find(const char* text, int next) {
    unsigned long name[kMaxNames];
    size_t length = 0;
    for (char* rest = (char*)text; *rest == '.' && length < kMaxNames;) name[length++] = strtoul(rest + 1, &rest, 10);
    size_t low = 0;
    size_t high = s_count;
    while (low < high) {
        const size_t middle = (low + high) / 2;
        if (Compare(&s_objects[middle], name, length) < next) {
            low = middle + 1;
        } else {
            high = middle;
        }
    }
    if (low == s_count || (!next && Compare(&s_objects[low], name, length) != 0)) return NULL;
    return &s_objects[low];
}

static void Answer(Object* object) {
    if (object == NULL || Refresh(object) < 0) {
        puts("NONE");
    } else if (object->type == 's') {
        printf("%s\noctet\n", object->text);
        for (size_t i = 0; i < object->size; ++i) printf("%02x ", object->octets[i]);
        putchar('\n');
    } else {
        printf("%s\n%s\n%ld\n", object->text, object->type == 'g' ? "gauge" : "integer", object->number);
    }
}

/* A value as snmpd writes it: string "text" for printable octets, octet "02 40 46 50" for others. */
static size_t ParseOctets(char* text, unsigned char* octets) {
    size_t size = 0;
    const int printable = strncmp(text, "string", 6) == 0;
    char* rest = strchr(text, '"');
    if (rest == NULL) return 0;
    for (++rest; *rest != '"' && *rest != 0 && size < kMaxOctets;) {
        if (printable) {
            octets[size++] = (unsigned char)*rest++;
        } else {
            char* end = rest;
            octets[size++] = (unsigned char)strtoul(rest, &end, 16);
            if (end == rest) return size - 1;
            rest = end + strspn(end, " ");
        }
    }
    return size;
}

static void Set(const char* name, char* value) {
    unsigned char octets[kMaxOctets];
    Object* object = Find(name, 0);
    if (object == NULL || object->set == '-') {
        puts("not-writable");
    } else {
        const size_t size = ParseOctets(value, octets);
        puts(Command(object, octets, size) == 0 ? "DONE" : "commit-failed");
    }
}

static int ReadLine(char* line, int size) {
    if (fgets(line, size, stdin) == NULL) return 0;
    line[strcspn(line, "\n")] = 0;
    return 1;
}

int main(int argc, char** argv) {
    char line[1024];
    char name[1024];
    char value[1024];
    if (argc != 2) return 2;
    s_objects = ReadObjects(argv[1], &s_count);
    setvbuf(stdout, NULL, _IOFBF, 65536);
    while (ReadLine(line, sizeof line)) {
        if (strcmp(line, "PING") == 0) {
            puts("PONG");
        } else if ((strcmp(line, "get") == 0 || strcmp(line, "getnext") == 0) && ReadLine(name, sizeof name)) {
            Answer(Find(name, line[3] != 0));
        } else if (strcmp(line, "set") == 0 && ReadLine(name, sizeof name) && ReadLine(value, sizeof value)) {
            Set(name, value);
        } else if (line[0] != 0) { /* snmpd ends a SET with an empty line */
            puts("NONE");
        }
        fflush(stdout);
    }
    return 0;
}
