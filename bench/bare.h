// What the library's work costs without the library: the JPEG, the bytes and nothing else.
#ifndef ZEL_BENCH_BARE_H
#define ZEL_BENCH_BARE_H

#include <string>
#include <utility>
#include <vector>

namespace bare {

// A directory in memory of its own, removed at the end.
class Folder {
public:
    Folder();
    ~Folder();
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;
    std::string operator/(const std::string& name) const { return m_Path + "/" + name; }
    const std::string& Path() const { return m_Path; }

private:
    std::string m_Path;
};

// A picture of blue, green, red and unused bytes, with the detail of a photograph.
std::vector<unsigned char> MakePicture(int xsize, int ysize);

// The record of one thumbnail; `number` makes the file's name, path and file have 40 and 60 bytes.
std::string MakeRecord(const std::string& folder, int number, long size);

// Encodes a picture into a file.
void EncodeJpeg(std::vector<unsigned char>& picture, int xsize, int ysize, const char* file);

// The bytes of that file, without one.
std::string EncodeJpeg(std::vector<unsigned char>& picture, int xsize, int ysize);

// Appends a text to a file.
void Append(const std::string& file, const std::string& text);

// Replaces a file by way of a temporary one that is flushed to the device.
void Replace(const std::string& file, const std::string& text);

// Reads an index in chunks, finds the records and keeps their first two strings.
std::vector<std::pair<std::string, std::string>> ReadIndex(const std::string& file);

}  // namespace bare

#endif
