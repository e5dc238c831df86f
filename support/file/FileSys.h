// FileSys: existence checks and small file-system operations on UTF-8 paths.
#pragma once

class LogBase;
class XString;

// Paths are UTF-8 and used as given (relative ones against the working
// directory). Symbolic links are followed.
class FileSys {
  public:
    // Whether a directory exists at path. failed reports that the question could
    // not be answered (a parent directory that may not be searched, a name too
    // long, a loop of symbolic links, an I/O error): the result is then false
    // and, when log is not null, "Failed to check whether the directory
    // exists." is logged with the path and the system's reason. Plain absence
    // (including a path that runs through a regular file, or an empty path) is
    // false with failed false and nothing logged.
    static bool IsExistingDirectory(XString& path, bool& failed, LogBase* log);

    // Whether a regular file exists at path (a directory is not a file). failed
    // and logging as for IsExistingDirectory, with the line "Failed to check
    // whether the file exists.".
    static bool fileExistsX(XString& path, bool& failed, LogBase* log);

    // Creates the directory and any missing parents (mode 0755 before the
    // umask). True when a directory exists at path afterwards, also when it
    // existed before; false with "Failed to create directory." otherwise.
    static bool createDirectory(XString& path, LogBase* log);

    // Removes the file. True when no file is left at path, also when there was
    // none; false with "Failed to delete file." otherwise (a directory is not
    // removed).
    static bool deleteFile(XString& path, LogBase* log);

    // Renames from to to, replacing a file at to in one step (atomically when
    // both are in one directory, so a reader sees the old file or the new one,
    // never part of either). False with "Failed to rename file." otherwise.
    static bool renameFile(XString& from, XString& to, LogBase* log);
};
