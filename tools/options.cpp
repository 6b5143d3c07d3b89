#include "options.h"

#include <getopt.h>

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <map>
#include <string_view>

#include "commands.h"

namespace {

constexpr char kHelpText[] =
    R"(Usage: zel-thumbnail-cache save --index INDEX --cache DIR [OPTION]... FILE...
       zel-thumbnail-cache devices
       zel-thumbnail-cache list INDEX [--json]
       zel-thumbnail-cache watch --index INDEX
Keep thumbnails of pictures on removable storage in a cache on internal flash.

  save     make and cache a thumbnail of each picture
  devices  print the storages that the platform knows
  list     print what an index holds
  watch    remove the thumbnails of storages that go, until interrupted

  --index INDEX  the index of the cache; its directory exists
  --cache DIR    the folder of the cache; it gets thumbnails as DIR/ID/NAME.jpg
  --device ID    the device that the pictures are on; without it, the storage
                 that each is on
  --mount NAME   the device is mounted at /opt/storage/usb/NAME (default: ID)
  --camera       the device is a PTP camera
  --size N       fit thumbnails into N x N pixels, 1 to 4096 (default: 256)
  --json         print JSON
  --help         print this help
  --version      print the version

Exit status: 0 if all went well, 1 if something failed, 2 if the command line
is wrong.
)";

// In the order of kOptions, and above the letters.
enum OptionId : int {
    kIndex = 256,
    kCache,
    kDevice,
    kMount,
    kCamera,
    kSize,
    kJson,
    kHelp,
    kVersion
};

constexpr option kOptions[] = {
    {"index", required_argument, nullptr, kIndex},   {"cache", required_argument, nullptr, kCache},
    {"device", required_argument, nullptr, kDevice}, {"mount", required_argument, nullptr, kMount},
    {"camera", no_argument, nullptr, kCamera},       {"size", required_argument, nullptr, kSize},
    {"json", no_argument, nullptr, kJson},           {"help", no_argument, nullptr, kHelp},
    {"version", no_argument, nullptr, kVersion},     {nullptr, 0, nullptr, 0}};

struct Command {
    std::string_view name;
    int (*run)(const Options&);
    std::vector<OptionId> options;
    const char* operand;  // what it needs one of, or null when it takes none
    bool takes_more;      // whether it takes more than one
};

const Command kCommands[] = {
    {"save", SavePictures, {kIndex, kCache, kDevice, kMount, kCamera, kSize}, "a FILE", true},
    {"devices", PrintDevices, {}, nullptr, false},
    {"list", PrintIndex, {kJson}, "an INDEX", false},
    {"watch", WatchStorages, {kIndex}, nullptr, false},
};

int PrintHelp(const Options&) { return std::fputs(kHelpText, stdout) < 0; }

int PrintVersion(const Options&) { return std::puts("zel-thumbnail-cache " ZEL_VERSION) < 0; }

int ParseSize(const std::string& text) {
    int size = 0;
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, size);
    if (error != std::errc() || stop != end || size < 1 || size > 4096) {
        throw UsageError("--size needs a number from 1 to 4096, not '" + text + "'");
    }
    return size;
}

void Store(Options& options, int id, const char* value) {
    static const std::map<int, std::string Options::*> texts = {{kIndex, &Options::index},
                                                                {kCache, &Options::cache},
                                                                {kDevice, &Options::device},
                                                                {kMount, &Options::mount}};
    if (const auto text = texts.find(id); text != texts.end()) {
        options.*text->second = value;
    } else if (id == kSize) {
        options.size = ParseSize(value);
    } else if (id == kHelp) {
        options.run = PrintHelp;
    } else if (id == kVersion) {
        options.run = PrintVersion;
    } else {
        (id == kCamera ? options.camera : options.json) = true;
    }
}

// Reads the options behind argv[0]; other than --help and --version only those that are allowed.
Options ReadOptions(int argc, char** argv, const std::vector<OptionId>& allowed) {
    Options options;
    opterr = 0;
    for (int id; (id = getopt_long(argc, argv, ":", kOptions, nullptr)) != -1;) {
        if (id == '?') {
            const bool is_letter = optopt > 0 && optopt < kIndex;
            throw UsageError("unknown option " + (is_letter ? std::string("-") + char(optopt)
                                                            : std::string(argv[optind - 1])));
        }
        const int known = id == ':' ? optopt : id;
        const std::string name = std::string("--") + kOptions[known - kIndex].name;
        if (known < kHelp && std::count(allowed.begin(), allowed.end(), known) == 0) {
            throw UsageError("unexpected option " + name);
        }
        if (id == ':' || (optarg != nullptr && *optarg == '\0')) {
            throw UsageError(name + " needs a value");
        }
        Store(options, id, optarg);
    }
    options.operands.assign(argv + optind, argv + argc);
    return options;
}

// A device and a mount directory each name one directory, in paths that the index can hold.
void CheckName(const std::string& option_name, const std::string& name) {
    if (name == "." || name == ".." || name.find_first_of("/\">") != std::string::npos) {
        throw UsageError(option_name + " needs the name of a directory, without / \" >");
    }
}

void CheckSave(Options& options) {
    if (options.index.empty() || options.cache.empty()) {
        throw UsageError("save needs --index INDEX and --cache DIR");
    }
    if (options.camera && !options.mount.empty()) {
        throw UsageError("--mount and --camera exclude one another");
    }
    if (options.device.empty() && (options.camera || !options.mount.empty())) {
        throw UsageError("--mount and --camera need --device ID");
    }
    if (options.mount.empty()) {
        options.mount = options.device;
    }
    CheckName("--device", options.device);
    CheckName("--mount", options.mount);
    if (!options.camera && options.mount.size() == 1) {
        throw UsageError("--mount needs a name of two or more characters");
    }
}

void CheckOperands(const Command& command, const Options& options) {
    const std::string name(command.name);
    if (command.operand != nullptr && options.operands.empty()) {
        throw UsageError(name + " needs " + command.operand);
    }
    const size_t most = command.operand != nullptr ? 1 : 0;
    if (!command.takes_more && options.operands.size() > most) {
        throw UsageError("unexpected argument " + options.operands[most]);
    }
}

}  // namespace

Options ParseOptions(int argc, char** argv) {
    const std::string name = argc > 1 ? argv[1] : "";
    const auto* command = std::find_if(std::begin(kCommands), std::end(kCommands),
                                       [&name](const Command& c) { return c.name == name; });
    if (command == std::end(kCommands)) {
        if (name.substr(0, 1) == "-") {
            const Options options = ReadOptions(argc, argv, {});
            if (options.run != nullptr) {
                return options;
            }
        }
        throw UsageError((argc > 1 ? "unknown command '" + name + "': " : std::string()) +
                         "the first argument is save, devices, list or watch");
    }
    Options options = ReadOptions(argc - 1, argv + 1, command->options);
    if (options.run != nullptr) {
        return options;
    }
    options.run = command->run;
    CheckOperands(*command, options);
    if (command->run == SavePictures) {
        CheckSave(options);
    } else if (command->run == WatchStorages && options.index.empty()) {
        throw UsageError("watch needs --index INDEX");
    }
    return options;
}
