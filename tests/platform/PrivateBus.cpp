#include "PrivateBus.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <stdexcept>

PrivateBus::PrivateBus(const std::string& limits) : _address("unix:path=" + _folder.File("bus")) {
    WriteFile(_folder.File("bus.conf"),
              "<!DOCTYPE busconfig PUBLIC \"-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN\"\n"
              " \"http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd\">\n"
              "<busconfig>\n"
              "  <listen>" +
                  _address +
                  "</listen>\n"
                  "  <auth>EXTERNAL</auth>\n"
                  "  <policy context=\"default\">\n"
                  "    <allow send_destination=\"*\" eavesdrop=\"false\"/>\n"
                  "    <allow receive_sender=\"*\"/>\n"
                  "    <allow own=\"*\"/>\n"
                  "    <allow user=\"*\"/>\n"
                  "  </policy>\n"
                  // The max of unanswered calls; small, so that the tests notice a client that abandons calls.
                  "  <limit name=\"max_replies_per_connection\">4</limit>\n" +
                  limits + "</busconfig>\n");
    setenv("TAVOS_BUS_ADDRESS", _address.c_str(), 1);
    Start();
}

PrivateBus::~PrivateBus() {
    Stop();
}

void PrivateBus::Start() {
    unlink(_folder.File("bus").c_str());
    int ready[2];
    if (pipe2(ready, O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
    const std::string config = "--config-file=" + _folder.File("bus.conf");
    const std::string print = "--print-address=3";
    _daemon = fork();
    if (_daemon == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (ready[1] == 3) {
            fcntl(3, F_SETFD, 0);
        } else {
            dup2(ready[1], 3);
        }
        dup2(open("/dev/null", O_WRONLY | O_CLOEXEC), STDERR_FILENO);  // discards warnings about missing rights
        execlp("dbus-daemon", "dbus-daemon", "--nofork", "--nopidfile", "--nosyslog", config.c_str(), print.c_str(),
               static_cast<char*>(nullptr));
        _exit(127);
    }
    close(ready[1]);
    pollfd descriptor{ready[0], POLLIN, 0};
    char first = 0;
    const bool answered = _daemon > 0 && poll(&descriptor, 1, 10000) == 1 && read(ready[0], &first, 1) == 1;
    close(ready[0]);
    if (!answered) {
        Stop();
        throw std::runtime_error("dbus-daemon does not start");
    }
}

void PrivateBus::Stop() {
    if (_daemon <= 0) return;
    kill(_daemon, SIGKILL);
    waitpid(_daemon, nullptr, 0);
    _daemon = -1;
}

void PrivateBus::Freeze() {
    kill(_daemon, SIGSTOP);
}

void PrivateBus::Thaw() {
    kill(_daemon, SIGCONT);
}
