#include <cerrno>
#include <clocale>
#include <cstdio>
#include <exception>
#include <tuple>

#include "options.h"
#include "report.h"

int main(int argc, char** argv) {
    std::ignore = std::setlocale(LC_CTYPE, "");  // else names are shown in ASCII
    int failure = 1;
    int status = 1;
    try {
        const Options options = ParseOptions(argc, argv);
        failure = options.failure;
        status = options.run(options);
    } catch (const UsageError& error) {
        std::ignore =
            std::fprintf(stderr, "zel-thumbnail-cache: %s (zel-thumbnail-cache --help explains)\n",
                         Printable(error.what()).c_str());
        return 2;  // nothing can be done about a standard error that cannot be written to
    } catch (const std::exception& error) {
        std::ignore = std::fprintf(stderr, "zel-thumbnail-cache: %s\n",
                                   Printable(error.what()).c_str());  // likewise
        status = failure;
    }
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
        if (errno != EPIPE) {  // whoever read it has seen enough
            std::perror("zel-thumbnail-cache: standard output");
        }
        return failure;
    }
    return status;
}
