#include "objects.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <systemd/sd-bus.h>

#include "lane.h"

static void Fail(const char* what) {
    fprintf(stderr, "%s\n", what);
    exit(1);
}

static sd_bus* Bus(void) {
    static sd_bus* bus = NULL;
    if (bus == NULL && (sd_bus_new(&bus) < 0 || sd_bus_set_address(bus, getenv("TAVOS_BUS_ADDRESS")) < 0 ||
                        sd_bus_set_bus_client(bus, 1) < 0 || sd_bus_start(bus) < 0)) {
        Fail("the message bus cannot be reached");
    }
    return bus;
}

static size_t FromHex(const char* text, unsigned char* octets) {
    size_t size = 0;
    for (; text[0] != 0 && text[1] != 0 && size < kMaxOctets; text += 2) {
        const char digits[] = {text[0], text[1], 0};
        octets[size++] = (unsigned char)strtoul(digits, NULL, 16);
    }
    return size;
}

static void ParseCall(char* text, Call* call) {
    char* rest = text;
    call->number = -1;
    snprintf(call->service, sizeof call->service, "%s", strsep(&rest, " "));
    snprintf(call->member, sizeof call->member, "%s", rest ? strsep(&rest, " ") : "");
    while (rest != NULL) {
        const char* argument = strsep(&rest, " ");
        if (argument[0] == 's') snprintf(call->bank, sizeof call->bank, "%s", argument + 2);
        if (argument[0] == 'i') call->number = atoi(argument + 2);
    }
}

static void ParseCalls(char* text, Object* object) {
    if (strcmp(text, "-") == 0) return;
    while (text != NULL && object->callCount < kMaxCalls)
        ParseCall(strsep(&text, ";"), &object->calls[object->callCount++]);
}

static void ParseName(const char* text, Object* object) {
    snprintf(object->text, sizeof object->text, ".%s", text);
    for (char* rest = object->text; *rest == '.' && object->length < kMaxNames;) {
        object->name[object->length++] = strtoul(rest + 1, &rest, 10);
    }
}

static void ParseLine(char* line, Object* object) {
    char* fields[6];
    line[strcspn(line, "\n")] = 0;
    for (int i = 0; i < 6; ++i) {
        fields[i] = strsep(&line, "\t");
        if (fields[i] == NULL) Fail("an object's line is too short");
    }
    memset(object, 0, sizeof *object);
    ParseName(fields[0], object);
    object->type = fields[1][0];
    if (object->type == 's') {
        object->size = FromHex(fields[2], object->octets);
    } else {
        object->number = atol(fields[2]);
    }
    ParseCalls(fields[3], object);
    object->bit = strncmp(fields[4], "bit:", 4) == 0 ? atoi(fields[4] + 4) : strcmp(fields[4], "number") == 0 ? 0 : -1;
    object->set = fields[5][0];
}

Object* ReadObjects(const char* path, size_t* count) {
    FILE* file = fopen(path, "r");
    if (file == NULL) Fail("the objects' file cannot be opened");
    Object* objects = NULL;
    char line[512];
    *count = 0;
    while (fgets(line, sizeof line, file) != NULL) {
        objects = realloc(objects, (*count + 1) * sizeof *objects);
        if (objects == NULL) Fail("no memory");
        ParseLine(line, &objects[(*count)++]);
    }
    fclose(file);
    return objects;
}

/* The service's lane, for which it is asked before the first call; without one, or after its end, the bus. */
static sd_bus* Way(const char* service) {
    static struct {
        char service[kMaxText];
        sd_bus* lane;
    } ways[kMaxServices];
    int i = 0;
    while (i < kMaxServices && ways[i].service[0] != 0 && strcmp(ways[i].service, service) != 0) ++i;
    if (i == kMaxServices) Fail("too many services");
    if (ways[i].service[0] == 0) {
        snprintf(ways[i].service, kMaxText, "%s", service);
        ways[i].lane = OpenLane(Bus(), service);
    }
    if (ways[i].lane != NULL && sd_bus_is_open(ways[i].lane) <= 0) {
        ways[i].lane = sd_bus_close_unref(ways[i].lane);
    }
    return ways[i].lane != NULL ? ways[i].lane : Bus();
}

static sd_bus_message* NewCall(const char* service, const char* member) {
    char name[kMaxText + 16];
    char path[kMaxText + 16];
    snprintf(name, sizeof name, "org.tavos.%s", service);
    snprintf(path, sizeof path, "/org/tavos/%s", service);
    sd_bus* const way = Way(service);
    const char* const destination = way == Bus() ? name : NULL;
    sd_bus_message* call = NULL;
    if (sd_bus_message_new_method_call(way, &call, destination, path, name, member) < 0) Fail("no message");
    return call;
}

/* Frees the call, which knows its connection; stores the answer's first number. */
static int Exchange(sd_bus_message* call, long* result) {
    sd_bus_message* answer = NULL;
    const int outcome = sd_bus_call(NULL, call, 500000, NULL, &answer);
    sd_bus_message_unref(call);
    if (outcome < 0) return -1;
    const char* const signature = sd_bus_message_get_signature(answer, 1);
    int number = 0;
    if (strchr("iub", signature[0]) != NULL && signature[0] != 0) {
        sd_bus_message_read_basic(answer, signature[0], &number);
    }
    sd_bus_message_unref(answer);
    *result = number;
    return 0;
}

int Refresh(Object* object) {
    long result = 0;
    for (size_t i = 0; i < object->callCount; ++i) {
        const Call* it = &object->calls[i];
        sd_bus_message* call = NewCall(it->service, it->member);
        if (it->bank[0] != 0) sd_bus_message_append(call, "s", it->bank);
        if (it->number >= 0) sd_bus_message_append(call, "i", it->number);
        if (Exchange(call, &result) < 0) return -1;
    }
    if (object->callCount == 0 || object->bit < 0) return 0;
    if (object->bit == 0) {
        object->number = result;
    } else {
        object->octets[0] = result != 0 ? (unsigned char)object->bit : 0;
    }
    return 0;
}

int Command(Object* object, const unsigned char* octets, size_t size) {
    long unused = 0;
    if (size > kMaxOctets) return -1;
    memcpy(object->octets, octets, size);
    object->size = size;
    if (object->set == 'p' && size == 4 && octets[0] == 2) {
        const int position = (octets[2] << 8 | octets[3]) * 10;
        const double speed = (signed char)octets[1] / 127.0;
        sd_bus_message* call = NewCall("Pan1", "SetPositionAtSpeed");
        sd_bus_message_append(call, "idi", position, speed, 300);
        return Exchange(call, &unused);
    }
    if (object->set == 'c' && size == 2 && (octets[0] & 1) != 0) {
        sd_bus_message* call = NewCall("Relay3", (octets[1] & 0x80) != 0 ? "SetRelay" : "ClearRelay");
        sd_bus_message_append(call, "sii", "BNK2", 0, (octets[1] & 0x80) != 0 ? 1 : 0);
        return Exchange(call, &unused);
    }
    return object->set == '-' ? -1 : 0;
}
