// Scenarios: texts of commands, each with all that is to be seen of the cache after it.
//
//     # a comment
//     > save A/new.jpg ptp://C/p 40x24
//     I zel_thumbnail_flash_cache_save_file
//     ...
//
// Below a command stand the log lines, of level I or W, and the calls of the platform, P; the
// letters are small while the engine's lock is held, and "worker" stands before those of other
// threads. Then comes what the call gave, and what has changed: files ("+" new or other, "-" gone),
// what the engine knows, and what it holds where a fresh start would find something else on disk.
// "$" stands for the directory of the scenario, "{x*9}" for nine times x, "\_" for a blank.
// Before the command, "with" names calls to the system that fail (rename=EPERM), cuts them to
// pieces (piece=9), lets the device have no more room (room=9), interrupts every second one
// (interrupting), traces those that change something (tracing, S), or lowers the rights (nobody);
// with "once", a call that is to fail does so the first time alone.
//
// ZEL_TEST_UPDATE=1 writes what is seen into the files, for a look at what has changed.
#pragma once

#include "fixture.h"

class Scenario : public CacheTest {
public:
    explicit Scenario(std::string path) : path_(std::move(path)) {}
    void TestBody() override;

private:
    using State = std::map<std::string, std::string>;  // what there is, and how it is
    using Words = std::vector<std::string>;
    using Command = std::function<void(Scenario&, Words)>;
    static const std::map<std::string, Command>& Commands();

    void SetUp() override;
    void TearDown() override;
    std::string Run(const std::string& line);
    void Prepare(Words& words);
    std::string Expand(const std::string& text) const;
    std::string Show(const std::string& text) const;
    std::string Describe(const fs::path& file);
    std::string DescribeImage(const std::string& text) const;
    State FilesSeen();
    static std::string Changes(State& from, State to);
    State Known();
    static std::string Describe(const Engine& of);
    void Do(const std::function<int()>& work);
    void Start(const char* indexPath);
    void Save(const char* file, const char* url, const std::string& size, char* preset);
    void Attach(int kind, const Words& words);
    _zel_storage_s StorageOf(const std::string& word);
    static Engine& TheEngine() { return *Engine::GetInstance(); }

    const std::string path_;
    SystemCalls calls_;
    bool asNobody_ = false;
    bool isLockUnknown_ = false;
    bool hasWorked_ = false;     // the command was one of the library's
    int xsize_ = 1, ysize_ = 1;  // of the image written last
    std::string seen_;           // what the command gave
    State files_, known_;
    std::map<std::string, std::string> images_;  // what they show, by their bytes
    std::list<std::string> texts_;               // that the platform's answers point to
    const mode_t umask_ = umask(0);
};
