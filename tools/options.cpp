#include "options.h"

#include <sched.h>

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <cstdio>

#include "commands.h"

namespace {

int PrintText(const Options& options) { return std::fputs(options.text.c_str(), stdout) < 0; }

Options TextToPrint(const std::string& text) {
    Options options;
    options.run = PrintText;
    options.text = text;
    return options;
}

const CLI::Validator kNotEmpty(
    [](const std::string& text) { return std::string(text.empty() ? "needs a value" : ""); }, "");

// A device and a mount directory each name one directory, in paths that the index can hold.
const CLI::Validator kDirectoryName(
    [](const std::string& name) {
        const bool is_name = !name.empty() && name != "." && name != ".." &&
                             name.find_first_of("/\">") == std::string::npos;
        return std::string(is_name ? "" : "needs the name of a directory, without / \" >");
    },
    "");

CLI::App* AddVerb(CLI::App& app, Options& options, const std::string& name,
                  const std::string& description, int (*run)(const Options&)) {
    CLI::App* verb = app.add_subcommand(name, description)->fallthrough();
    verb->callback([&options, run] { options.run = run; });
    return verb;
}

CLI::Option* AddIndex(CLI::App& verb, Options& options) {
    return verb
        .add_option("--index", options.index, "The index of the cache; its directory exists")
        ->type_name("INDEX")
        ->check(kNotEmpty)
        ->required();
}

// Those that the process may use; 1 where they are more than a set can hold.
int CountProcessors() {
    cpu_set_t processors;
    return sched_getaffinity(0, sizeof processors, &processors) == 0 ? CPU_COUNT(&processors) : 1;
}

// How thumbnails are made.
void AddMaking(CLI::App& verb, Options& options, CLI::Option* cache) {
    options.jobs = CountProcessors();
    verb.add_option("--size", options.size, "Fit thumbnails into N x N pixels")
        ->type_name("N")
        ->check(CLI::Range(1, 4096))
        ->needs(cache)
        ->capture_default_str();
    verb.add_option("--jobs", options.jobs,
                    "Decode N pictures at the same time; by default one a processor")
        ->type_name("N")
        ->check(CLI::Range(1, 256))
        ->needs(cache);
}

void DeclareSave(CLI::App& app, Options& options) {
    CLI::App& save =
        *AddVerb(app, options, "save", "Make and cache a thumbnail of each picture", SavePictures);
    AddIndex(save, options);
    CLI::Option* cache =
        save.add_option("--cache", options.cache,
                        "The folder of the cache; it gets thumbnails as DIR/ID/NAME-HASH.jpg")
            ->type_name("DIR")
            ->check(kNotEmpty)
            ->required();
    CLI::Option* device =
        save.add_option("--device", options.device,
                        "The device that the pictures are on; without it, the storage that each "
                        "is on")
            ->type_name("ID")
            ->check(kDirectoryName);
    CLI::Option* mount =
        save.add_option("--mount", options.mount,
                        "The device is mounted at /opt/storage/usb/NAME; without it, at ID")
            ->type_name("NAME")
            ->check(kDirectoryName)
            ->needs(device);
    save.add_flag("--camera", options.camera, "The device is a PTP camera")
        ->needs(device)
        ->excludes(mount);
    AddMaking(save, options, cache);
    save.add_flag("--verbose", options.verbose, "List every picture, however many");
    save.add_option("FILE", options.operands, "The pictures, or folders of pictures")
        ->type_name("")
        ->take_all()
        ->required();
    save.parse_complete_callback([&options] {
        if (options.mount.empty()) {
            options.mount = options.device;
        }
        if (!options.camera && options.mount.size() == 1) {
            throw CLI::ValidationError("--mount", "needs a name of two or more characters");
        }
    });
}

CLI::App& AddIndexReader(CLI::App& app, Options& options, const std::string& name,
                         const std::string& description, int (*run)(const Options&)) {
    CLI::App& verb = *AddVerb(app, options, name, description, run);
    verb.add_option("INDEX", options.index, "The index")->type_name("")->required();
    return verb;
}

void DeclareWatch(CLI::App& app, Options& options) {
    CLI::App& watch =
        *AddVerb(app, options, "watch",
                 "Remove the thumbnails of storages that go, and make those of storages that come",
                 WatchStorages);
    AddIndex(watch, options);
    CLI::Option* cache =
        watch
            .add_option("--cache", options.cache,
                        "The folder of the cache; without it no thumbnails are made")
            ->type_name("DIR")
            ->check(kNotEmpty);
    AddMaking(watch, options, cache);
}

void DeclareList(CLI::App& app, Options& options) {
    CLI::App& list = AddIndexReader(app, options, "list", "Print what an index holds", PrintIndex);
    list.add_flag("--json", options.json, "Print JSON, with sizes in bytes");
    list.add_flag("--bytes", options.bytes, "Print sizes in bytes");
}

void DeclareCheck(CLI::App& app, Options& options) {
    CLI::App& check =
        AddIndexReader(app, options, "check",
                       "Find, and mend, what is not as it should be in a cache", CheckIndex);
    check.add_flag("--repair", options.repair,
                   "Rewrite the index with what is right, and remove images that it does not name");
    check.footer(
        "Exit status: 0 if the cache is sound, 1 if it has been mended, 4 if it has not, 8 if it "
        "could not be checked or mended, 2 if the command line is wrong.");
    check.parse_complete_callback([&options] { options.failure = 8; });
}

void DeclareStats(CLI::App& app, Options& options) {
    CLI::App& stats = AddIndexReader(app, options, "stats",
                                     "Print how full a cache is, and with what", PrintStatistics);
    stats.add_flag("--json", options.json, "Print JSON, with sizes in bytes");
}

void DeclareSheet(CLI::App& app, Options& options) {
    CLI::App& sheet = AddIndexReader(app, options, "sheet",
                                     "Make a web page that shows the thumbnails", MakeSheet);
    sheet
        .add_option("--output", options.output,
                    "The page; without it, it goes to standard output, with links for a page in "
                    "the working directory")
        ->type_name("FILE")
        ->check(kNotEmpty);
    sheet.add_flag("--embed", options.embed, "Put the images into the page");
}

// CLI11 would take the next word for the value.
void RefuseEmptyValues(int argc, char** argv) {
    for (int i = 1; i < argc && argv[i] != std::string("--"); ++i) {
        const std::string word = argv[i];
        if (word.substr(0, 2) == "--" && word.find('=') == word.size() - 1) {
            throw UsageError(word.substr(0, word.size() - 1) + " needs a value");
        }
    }
}

}  // namespace

Options ParseOptions(int argc, char** argv) {
    Options options;
    CLI::App app("Keep thumbnails of pictures on removable storage in a cache on internal flash.",
                 "zel-thumbnail-cache");
    app.footer(
        "Exit status: 0 if all went well, 1 if something failed, 2 if the command line is "
        "wrong.");
    app.set_help_flag("--help", "Print this help");
    app.set_version_flag("--version", "zel-thumbnail-cache " ZEL_VERSION, "Print the version");
    app.option_defaults()->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
    DeclareSave(app, options);
    AddVerb(app, options, "devices", "Print the storages that the platform knows", PrintDevices);
    DeclareList(app, options);
    DeclareWatch(app, options);
    DeclareCheck(app, options);
    DeclareStats(app, options);
    DeclareSheet(app, options);
    const std::string verbs =
        "the first argument is save, watch, devices, list, check, stats or sheet";
    RefuseEmptyValues(argc, argv);
    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp&) {
        return TextToPrint(app.help());
    } catch (const CLI::CallForVersion& version) {
        return TextToPrint(version.what() + std::string("\n"));
    } catch (const CLI::ParseError& error) {
        throw UsageError(app.get_subcommands().empty() ? error.what() + (": " + verbs)
                                                       : error.what());
    }
    if (options.run == nullptr) {
        throw UsageError(verbs);
    }
    return options;
}
