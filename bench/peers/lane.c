#include "lane.h"

#include <fcntl.h>
#include <stdio.h>
#include <sys/socket.h>
#include <unistd.h>

/* Takes the descriptor. */
static sd_bus* NewConnection(int descriptor, int isServer) {
    const sd_id128_t id = {{1}};
    sd_bus* bus = NULL;
    if (sd_bus_new(&bus) >= 0 && sd_bus_set_fd(bus, descriptor, descriptor) >= 0) {
        if (sd_bus_set_anonymous(bus, 1) >= 0 && sd_bus_negotiate_fds(bus, 0) >= 0 &&
            (!isServer || sd_bus_set_server(bus, 1, id) >= 0) && sd_bus_start(bus) >= 0) {
            return bus;
        }
    } else {
        close(descriptor);
    }
    sd_bus_close_unref(bus);
    return NULL;
}

/* sd-bus authenticates on every connection, but on a lane messages begin at once. So it authenticates with itself over
   another pair of sockets; then the lane takes over the number of the client's socket. */
static sd_bus* ConnectionOn(int lane) {
    enum { kMaxTurns = 20 };
    int pair[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, pair) < 0) return NULL;
    sd_bus* client = NewConnection(pair[0], 0);
    sd_bus* server = NewConnection(pair[1], 1);
    int isReady = 0;
    for (int turn = 0; client != NULL && server != NULL && turn < kMaxTurns && !isReady; ++turn) {
        if (sd_bus_process(client, NULL) < 0 || sd_bus_process(server, NULL) < 0) break;
        isReady = sd_bus_is_ready(client) > 0 && sd_bus_is_ready(server) > 0;
    }
    isReady = isReady && dup2(lane, pair[0]) >= 0 && fcntl(pair[0], F_SETFL, O_NONBLOCK) == 0;
    sd_bus_close_unref(server);
    if (isReady) return client;
    sd_bus_close_unref(client);
    return NULL;
}

sd_bus* OpenLane(sd_bus* bus, const char* service) {
    char name[64];
    char path[64];
    snprintf(name, sizeof name, "org.tavos.%s", service);
    snprintf(path, sizeof path, "/org/tavos/%s", service);
    sd_bus_message* answer = NULL;
    sd_bus* connection = NULL;
    int lane = -1;
    if (sd_bus_call_method(bus, name, path, name, "OpenLane", NULL, &answer, "") >= 0 &&
        sd_bus_message_read(answer, "h", &lane) > 0) {
        connection = ConnectionOn(lane);
    }
    sd_bus_message_unref(answer); /* closes its descriptor */
    return connection;
}
