#include "Desk.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <thread>

namespace dome::test {

namespace {

using namespace std::chrono_literals;

const char* const kBinaries = DOME_TEST_BINARIES;

bool CanConnect(const std::string& socketPath) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    socketPath.copy(address.sun_path, sizeof address.sun_path - 1);
    const int descriptor = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const bool connected = connect(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    close(descriptor);
    return connected;
}

std::vector<char*> Pointers(Words& words) {
    std::vector<char*> pointers;
    for (std::string& word : words) pointers.push_back(word.data());
    pointers.push_back(nullptr);
    return pointers;
}

constexpr const char* kBusConfiguration =
    R"(<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <listen>unix:path=SOCKET</listen>
  <auth>EXTERNAL</auth>
  <policy context="default">
    <allow user="*"/>
    <allow own="*"/>
    <allow send_destination="*"/>
    <allow receive_sender="*"/>
  </policy>
</busconfig>
)";

}  // namespace

bool Await(const std::function<bool()>& condition, std::chrono::milliseconds time) {
    const auto deadline = std::chrono::steady_clock::now() + time;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::sleep_for(5ms);
    }
    return true;
}

Process::Process(const Words& command, const std::string& output, const std::string& errors, const Words& environment) {
    Words words = command;
    Words additions = environment;
    const std::vector<char*> arguments = Pointers(words);
    const int out = open(output.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    const int err = open(errors.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    const pid_t parent = getpid();
    _pid = fork();
    if (_pid == 0) {
        setpgid(0, 0);
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (getppid() != parent) _exit(127);
        dup2(out, STDOUT_FILENO);
        dup2(err, STDERR_FILENO);
        for (std::string& addition : additions) putenv(addition.data());
        execvp(arguments[0], arguments.data());
        _exit(127);
    }
    close(out);
    close(err);
    if (_pid < 0) throw std::runtime_error("cannot start a child process");
    _running = true;
}

Process::~Process() {
    if (!IsRunning()) return;
    Signal(SIGKILL);
    Reap(0);
}

void Process::Signal(int number) const {
    if (_running) kill(_pid, number);
}

bool Process::IsRunning() {
    if (_running) Reap(WNOHANG);
    return _running;
}

double Process::ResidentMegabytes() const {
    std::ifstream pages("/proc/" + std::to_string(_pid) + "/statm");
    double all = 0;
    double resident = 0;
    pages >> all >> resident;
    return resident * static_cast<double>(sysconf(_SC_PAGESIZE)) / (1024 * 1024);
}

double Process::ProcessorSeconds() const {
    std::ifstream file("/proc/" + std::to_string(_pid) + "/stat");
    std::string stat;
    std::getline(file, stat);
    std::istringstream fields(stat.substr(stat.rfind(')') + 1));  // the process name may contain anything
    std::string skipped;
    for (int field = 3; field < 14; ++field) fields >> skipped;
    double user = -1;
    double system = -1;
    fields >> user >> system;
    return (user + system) / static_cast<double>(sysconf(_SC_CLK_TCK));
}

int Process::Wait(std::chrono::milliseconds time) {
    if (!Await([&] { return !IsRunning(); }, time)) {
        ADD_FAILURE() << "the process does not end";
        Signal(SIGKILL);
        Reap(0);
    }
    return WIFEXITED(_status) ? WEXITSTATUS(_status) : -WTERMSIG(_status);
}

void Process::Reap(int options) {
    _running = waitpid(_pid, &_status, options) != _pid;
}

Desk::Desk() {
    char folder[] = "/tmp/dome-test-XXXXXX";
    if (!mkdtemp(folder)) throw std::runtime_error("cannot create a folder in /tmp");
    _folder = folder;
}

Desk::~Desk() {
    _dome.reset();
    _bus.reset();
    std::filesystem::remove_all(_folder);
}

void Desk::StartBus() {
    std::string configuration = kBusConfiguration;
    configuration.replace(configuration.find("SOCKET"), 6, _folder + "/bus.sock");
    std::ofstream(_folder + "/bus.conf") << configuration;
    std::filesystem::remove(_folder + "/bus.sock");
    _bus = std::make_unique<Process>(
        Words{"dbus-daemon", "--config-file=" + _folder + "/bus.conf", "--nofork", "--nopidfile", "--nosyslog"},
        _folder + "/bus.out", _folder + "/bus.err");
    ASSERT_TRUE(Await([&] { return CanConnect(_folder + "/bus.sock"); })) << Read("bus.err");
}

void Desk::StopBus() {
    _bus->Signal(SIGTERM);
    _bus->Wait();
    _bus.reset();
}

void Desk::StartDome(const Words& options) {
    Words command{std::string(kBinaries) + "/orvex-dome", "--state", _folder};
    command.insert(command.end(), options.begin(), options.end());
    _dome = std::make_unique<Process>(command, _folder + "/dome.out", _folder + "/dome.err");
    ASSERT_TRUE(Await([&] { return Read("dome.out") == "ready\n" || !_dome->IsRunning(); }));
    ASSERT_TRUE(_dome->IsRunning()) << Read("dome.err");
}

Result Desk::Run(const std::string& program, const Words& arguments, const Words& environment) {
    Words command{std::string(kBinaries) + "/" + program};
    command.insert(command.end(), arguments.begin(), arguments.end());
    Process process(command, _folder + "/run.out", _folder + "/run.err", environment);
    const int status = process.Wait(20s);
    return {status, Read("run.out"), Read("run.err")};
}

Result Desk::TryControl(const Words& command) {
    Words arguments{"--state", _folder};
    arguments.insert(arguments.end(), command.begin(), command.end());
    return Run("domectl", arguments);
}

std::string Desk::Control(const Words& command) {
    const Result result = TryControl(command);
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(result.errors, "");
    return result.output;
}

nlohmann::json Desk::State() {
    return nlohmann::json::parse(Control({"state"}));
}

std::vector<nlohmann::json> Desk::Calls() {
    std::vector<nlohmann::json> calls;
    std::istringstream lines(Control({"calls"}));
    for (std::string line; std::getline(lines, line);) calls.push_back(nlohmann::json::parse(line));
    return calls;
}

std::string Desk::Read(const std::string& file) const {
    std::ifstream text(_folder + "/" + file);
    return {std::istreambuf_iterator<char>(text), {}};
}

}  // namespace dome::test
