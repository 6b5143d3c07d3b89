#include "scenario.h"

#include <sys/stat.h>
#include <sys/syscall.h>

#include <numeric>
#include <regex>

#include "bare.h"
#include "zel_thumbnail_flash_cache.h"

void Scenario::SetUp() {
    engine.reset();
    Log();
    platform.isLocked = [this] {
        const bool isOfWorker = syscall(SYS_gettid) != getpid();
        return (isOfWorker || !isLockUnknown_) && Engine::m_pObj != nullptr &&
               !TryLock(*Engine::m_pObj);
    };
    files_ = FilesSeen();
}

void Scenario::TearDown() {
    platform.isLocked = {};
    EXPECT_EQ(zel_thumbnail_flash_cache_clear(), 1);
    umask(umask_);
}

void Scenario::TestBody() {
    std::ifstream file(path_);
    std::string updated, line;
    std::getline(file, line);
    for (int number = 1; file;) {
        const std::string command = line;
        const int commandNumber = number;
        const bool isCommand = command.substr(0, 2) == "> ";
        std::string expected;
        while (++number, std::getline(file, line) && isCommand && !line.empty() && line[0] != '>' &&
                             line[0] != '#')
            expected += line + "\n";
        const std::string seen = isCommand ? Run(command.substr(2)) : "";
        EXPECT_EQ(seen, expected) << path_ << ":" << commandNumber << ": " << command;
        updated += command + "\n" + seen;
    }
    EXPECT_NE(updated, "") << path_;
    if (getenv("ZEL_TEST_UPDATE") != nullptr)
        std::ofstream(path_) << updated;
}

// Takes the words from "with" to ":" away.
void Scenario::Prepare(Words& words) {
    static const auto numberOf = [](const std::string& error) {
        int number = 1;
        while (strerrorname_np(number) == nullptr || strerrorname_np(number) != error)
            ++number;
        return number;
    };
    const auto end = std::find(words.begin(), words.end(), ":");
    for (auto word = words.begin(); word < end; ++word) {
        const std::size_t sign = word->find('=');
        const std::string name = word->substr(0, sign), value = word->substr(sign + 1);
        asNobody_ |= name == "nobody";
        calls_.tracing |= name == "tracing";
        calls_.interrupting |= name == "interrupting";
        calls_.once |= name == "once";
        if (name == "piece")
            calls_.piece = std::stoul(value);
        else if (name == "room")
            calls_.room = std::stoul(value);
        else if (sign != std::string::npos)
            calls_.refused[name] = numberOf(value);
    }
    words.erase(words.begin(), end + 1);
}

std::string Scenario::Run(const std::string& line) {
    Words words;
    boost::split(words, line, boost::is_any_of(" "));
    calls_ = {};
    calls_.directory = root;
    asNobody_ = hasWorked_ = false;
    seen_.clear();
    if (words[0] == "with")
        Prepare(words);
    std::transform(words.begin(), words.end(), words.begin(),
                   [this](const std::string& word) { return Expand(word); });
    const auto command = Commands().find(words[0]);
    if (command == Commands().end())
        return "no such command\n";
    try {
        command->second(*this, Words(words.begin() + 1, words.end()));
    } catch (const std::exception& error) {
        seen_ += error.what() + std::string("\n");
    }
    for (const char* who : {"worker ", ""}) {
        const std::string log = Log(*who != '\0');
        if (!log.empty())
            seen_ = who + boost::replace_all_copy(log, "|", std::string("\n") + who) + "\n" + seen_;
    }
    if (hasWorked_)
        seen_ += Changes(known_, Known()) + Changes(files_, FilesSeen());
    files_ = FilesSeen();
    Words lines;
    boost::split(lines, seen_, boost::is_any_of("\n"));
    std::transform(lines.begin(), lines.end(), lines.begin(),
                   [this](const std::string& text) { return Show(text); });
    return boost::join(lines, "\n");
}

void Scenario::Do(const std::function<int()>& work) {
    const uid_t user = geteuid();
    EXPECT_EQ(seteuid(asNobody_ && user == 0 ? 65534 : user), 0);  // root meets no refusal
    hasWorked_ = true;
    g_calls = &calls_;
    const int answer = work();
    g_calls = nullptr;
    EXPECT_EQ(seteuid(user), 0);
    seen_ += "= " + std::to_string(answer) + "\n";
}

std::string Scenario::Expand(const std::string& text) const {
    static const std::regex special("\\$|\\\\(x..|.)|\\{(\\\\?x?[^*]{1,2})\\*([0-9]+)\\}");
    if (text == "\"\"")
        return {};
    std::string expanded;
    std::sregex_iterator part(text.begin(), text.end(), special);
    std::size_t end = 0;
    for (; part != std::sregex_iterator(); end = part->position() + part->length(), ++part) {
        expanded += text.substr(end, part->position() - end);
        const std::string found = part->str(), escaped = (*part)[1];
        if (found == "$")
            expanded += root;
        else if (found[0] == '{')
            for (int count = std::stoi((*part)[3]); count > 0; --count)
                expanded += Expand((*part)[2]);
        else if (escaped.size() == 3)
            expanded += static_cast<char>(std::stoi(escaped.substr(1), nullptr, 16));
        else
            expanded += escaped == "n"   ? '\n'
                        : escaped == "r" ? '\r'
                        : escaped == "_" ? ' '
                        : escaped == "0" ? '\0'
                        : escaped == "t" ? '\t'
                                         : escaped[0];
    }
    return expanded + text.substr(end);
}

// A text on one line, with escapes for what cannot be seen and for what is repeated.
std::string Scenario::Show(const std::string& text) const {
    std::string shown;
    for (std::size_t at = 0, end; at < text.size(); at = end) {
        std::array<char, 5> one{text[at]};
        if (text[at] == '\n' || text[at] == '\r' || text[at] == '\0')
            std::snprintf(one.data(), one.size(), "\\%c",
                          text[at] == '\n' ? 'n'
                          : text[at]       ? 'r'
                                           : '0');
        else if (!std::isprint(static_cast<unsigned char>(text[at])))
            std::snprintf(one.data(), one.size(), "\\x%02x", static_cast<unsigned char>(text[at]));
        end = std::min(text.find_first_not_of(text[at], at), text.size());
        if (end - at < 20)
            end = at + 1, shown += one.data();
        else
            shown += "{" + std::string(one.data()) + "*" + std::to_string(end - at) + "}";
    }
    return shown.size() > 6000 ? std::to_string(text.size()) + " bytes" : Short(shown);
}

static std::string ModeOf(const fs::path& file, unsigned usual) {
    const auto mode = static_cast<unsigned>(fs::symlink_status(file).permissions());
    std::array<char, 16> text{};
    std::snprintf(text.data(), text.size(), " %04o", mode);
    return mode == usual ? "" : text.data();
}

std::string Scenario::Describe(const fs::path& file) {
    const std::string text = fs::is_regular_file(file) ? Read(fs::relative(file, root)) : "";
    const std::string described = ModeOf(file, 0666);
    if (fs::is_fifo(file))
        return described + " pipe";
    if (fs::is_symlink(file))
        return described + " -> " + fs::read_symlink(file).string() + " " + Show(text);
    if (text.substr(0, 2) != "\xff\xd8")
        return described + boost::replace_all_copy(" " + Show(text), "\\r\\n<", "\\r\\n\n  <");
    std::string& image = images_[text];
    if (image.empty())
        image = DescribeImage(text);
    return described + image;
}

std::string Scenario::DescribeImage(const std::string& text) const {
    std::vector<unsigned char> picture = pixels;
    const std::string same = bare::EncodeJpeg(picture, xsize_, ysize_);
    const std::string size = " " + std::to_string(xsize_) + "x" + std::to_string(ysize_);
    if (text.compare(0, same.size(), same) != 0)
        return " not the jpeg of" + size;
    // Every processor makes the same bytes.
    const unsigned sum = std::accumulate(
        same.begin(), same.end(), 0U,
        [](unsigned hash, char byte) { return 31 * hash + static_cast<unsigned char>(byte); });
    return " jpeg of" + size + ", " + std::to_string(same.size()) + " bytes (" +
           std::to_string(sum) + ") " + Show(text.substr(same.size()));
}

std::string Scenario::Describe(const Engine& of) {
    std::string text;
    for (const auto& folder : of.m_ThumbFolderList)
        text += "\n  " + folder->Sid + " at " + folder->Path + ", " +
                std::to_string(folder->Devicetype);
    for (const auto& item : of.m_ThumbItemList)
        text += "\n  " + item->URL + " in " + item->Path + ", " + std::to_string(item->Size) +
                " bytes, " + std::to_string(item->Devicetype);
    return text;
}

Scenario::State Scenario::FilesSeen() {
    State files;
    for (const auto& entry : fs::recursive_directory_iterator(root))
        if (!entry.is_directory() || entry.is_symlink())
            files[entry.path()] = Describe(entry.path());
        else
            files[entry.path().string() + "/"] = ModeOf(entry.path(), 0777);
    return files;
}

Scenario::State Scenario::Known() {
    State known;
    if (Engine::m_pObj == nullptr)
        return known;
    for (const auto& [id, place] : TheEngine().m_MountPathMap)
        known["knows " + id] = " at " + place;
    for (const auto& [id, mark] : TheEngine().m_PtpDeviceMap)
        known["knows camera " + id] = " as " + mark;
    known["accounts"] = " for " + std::to_string(TheEngine().m_CacheSize) + " bytes";
    Engine fresh;
    fresh.m_strCachePath = TheEngine().m_strCachePath;
    std::ignore = fresh.m_LoadThumbFile();  // none is like an empty one
    Log();
    const std::string held = Describe(TheEngine()), found = Describe(fresh);
    if (found != held)
        known["holds"] = held + "\nbut a fresh start finds" + found;
    return known;
}

// What has changed from one state to the next, which replaces it.
std::string Scenario::Changes(State& from, State to) {
    std::string changes;
    for (const auto& [name, text] : from)
        if (to.count(name) == 0)
            changes += "- " + name + "\n";
    for (const auto& [name, text] : to)
        if (from.count(name) == 0 || from.at(name) != text)
            changes += "+ " + name + text + "\n";
    from = std::move(to);
    return changes;
}
