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

/// Polls until the condition holds; false when it does not hold within the time.
bool Await(const std::function<bool()>& condition, std::chrono::milliseconds time = std::chrono::seconds(10));

/// A child process in a new process group. It ends with this process, if not before. Its output goes to files.
class Process {
public:
    /// Creates the files `output` and `errors`; adds `environment` ("NAME=value") to this process's environment.
    Process(const Words& command, const std::string& output, const std::string& errors, const Words& environment = {});
    ~Process();
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    void Signal(int number) const;
    bool IsRunning();
    double ResidentMegabytes() const;
    /// The processor time of the process itself since its start, user and system.
    double ProcessorSeconds() const;

    /// The exit status, or minus the number of the signal that ended it. After the time, kills the process and fails
    /// the test.
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

/// One desk camera: a state folder, a bus and a dome, which end with this object.
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

    /// Runs a program of this build until it ends.
    Result Run(const std::string& program, const Words& arguments, const Words& environment = {});

    /// Runs domectl and returns its output. Fails the test when domectl fails.
    std::string Control(const Words& command);
    Result TryControl(const Words& command);
    nlohmann::json State();
    /// The calls received, as parsed JSON lines.
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
