/**
 * @file
 * The command line of zel-thumbnail-cache.
 */
#ifndef ZEL_TOOLS_OPTIONS_H
#define ZEL_TOOLS_OPTIONS_H

#include <stdexcept>
#include <string>
#include <vector>

/** A command line that cannot be carried out; what() is one line that says why. */
class UsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/** A checked command line. A text that was not given is empty. */
struct Options {
    int (*run)(const Options&) = nullptr; /**< the command */
    int failure = 1;                      /**< exit status when the command throws */
    std::string text;                     /**< what --help or --version prints */
    std::string index;                    /**< path of the index */
    std::string cache;                    /**< folder that holds the devices' folders */
    std::string device;                   /**< id of the device that the pictures are on */
    std::string mount;                    /**< name of the device's mount directory */
    bool camera = false;                  /**< the device is a camera */
    bool json = false;                    /**< print JSON */
    bool bytes = false;                   /**< print sizes in bytes */
    bool repair = false;                  /**< mend what is found */
    bool embed = false;                   /**< put the images into the page */
    std::string output;                   /**< file of the page */
    bool verbose = false;                 /**< list every picture */
    int jobs = 1;                         /**< number of pictures decoded at the same time */
    int size = 256;                       /**< width and height that a thumbnail fits into */
    std::vector<std::string> operands;    /**< what is not an option */
};

/** Reads a command line. Throws UsageError. */
[[nodiscard]] Options ParseOptions(int argc, char** argv);

#endif
