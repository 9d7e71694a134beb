#pragma once

#include <string>
#include <string_view>

/// @file
/// Bytes from and to open descriptors of any kind. Where a pipe or a terminal is waited for, SIGINT and SIGTERM end the
/// wait. What the system refuses is thrown as std::system_error; its code says why.

namespace quen::workbench {

/// Keeps the numbers of the standard input, output and error from being given to files where the process was started
/// without one of these: what is printed would go into such a file. Reading and writing there fail as before.
void OccupyStandardDescriptors();

/// Opens a file as open(2) does; it neither becomes the controlling terminal nor is passed on to a child process.
/// @return  its descriptor; −1 where it cannot be opened, with errno
/// @throws Interrupted  a signal has come meanwhile
int Open(const std::string& path, int flags, unsigned int mode = 0);

/// Reads a pipe, a terminal or a device to its end.
/// @param most  bytes; if more come, most + 1 of them are returned
/// @throws std::system_error  it cannot be read
/// @throws Interrupted        a signal has come meanwhile
std::string ReadToEnd(int descriptor, std::size_t most);

/// Reads a regular file from a position on, until `size` bytes are read or it ends.
/// @throws std::system_error  it cannot be read
std::string ReadAt(int descriptor, std::size_t position, std::size_t size);

/// Writes all bytes, in pieces that a pipe takes at once.
/// @throws std::system_error  it takes no more
/// @throws Interrupted        a signal has come meanwhile
void WriteAll(int descriptor, std::string_view bytes);

/// Writes all bytes into a regular file from a position on, wherever its descriptor stands.
/// @throws std::system_error  it takes no more
void WriteAt(int descriptor, std::string_view bytes, std::size_t position);

/// Writes all bytes into a regular file, waits until the disk has them, and reads them back.
/// @param position  where they begin in the file, which is where the descriptor stands
/// @param readable  a descriptor of the same file that is open for reading
/// @throws std::system_error  the disk takes no more, or something else came back (EIO)
/// @throws Interrupted        a signal has come meanwhile
void WriteToDisk(int descriptor, std::string_view bytes, std::size_t position, int readable);

}  // namespace quen::workbench
