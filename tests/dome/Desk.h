#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace dome::test {

using Words = std::vector<std::string>;

/// Asks until the answer is yes; false when it was not within the time.
bool Await(const std::function<bool()>& condition, std::chrono::milliseconds time = std::chrono::seconds(10));

/// A child process, in a process group of its own, that ends with this one at the latest. Its output goes to files.
class Process {
public:
    /// `output` and `errors` are files that are made anew; `environment` is "NAME=value" on top of this process's.
    Process(const Words& command, const std::string& output, const std::string& errors, const Words& environment = {});
    ~Process();
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    void Signal(int number) const;
    bool IsRunning();
    double ResidentMegabytes() const;
    /// What the process itself has used of the processor since its start, user and system time.
    double ProcessorSeconds() const;

    /// The exit status, or minus the number of the signal that ended it. Fails the test after the time, and kills.
    int Wait(std::chrono::milliseconds time = std::chrono::seconds(10));

private:
    void Reap(int options);

    pid_t _pid = -1;
    bool _running = false;
    int _status = 0;
};

struct Result {
    int status;
    std::string output;
    std::string errors;
};

/// One desk camera: a state folder of its own, a bus and a dome, that end with this object.
class Desk {
public:
    Desk();
    ~Desk();
    Desk(const Desk&) = delete;
    Desk& operator=(const Desk&) = delete;

    void StartBus();
    void StopBus();
    void StartDome(const Words& options = {});
    Process& Dome() { return *_dome; }

    /// Runs a program of this build to its end.
    Result Run(const std::string& program, const Words& arguments, const Words& environment = {});

    /// Runs domectl; what it printed. Fails the test when it does not succeed.
    std::string Control(const Words& command);
    Result TryControl(const Words& command);
    nlohmann::json State();
    /// The calls received, as JSON lines parsed.
    std::vector<nlohmann::json> Calls();

    const std::string& Folder() const { return _folder; }
    std::string BusAddress() const { return "unix:path=" + _folder + "/bus.sock"; }
    std::string Read(const std::string& file) const;

private:
    std::string _folder;
    std::unique_ptr<Process> _bus;
    std::unique_ptr<Process> _dome;
};

}  // namespace dome::test
