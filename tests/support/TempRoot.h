#pragma once
// CTempRoot: a fresh private runtime root for one test. The constructor makes a new
// directory under $TMPDIR (or /tmp) and makes it the process's runtime root; the
// destructor restores "/" and deletes the directory with everything in it.

#include <string>

class CTempRoot {
public:
    CTempRoot();
    ~CTempRoot();
    CTempRoot(const CTempRoot&) = delete;
    CTempRoot& operator=(const CTempRoot&) = delete;

    const std::string& GetDir() const { return m_dir; }
    // The path of a system path under this root ("/var/run/ui/x" -> "<dir>/var/run/ui/x").
    std::string Path(const std::string& systemPath) const { return m_dir + systemPath; }
    // Creates a system directory (and its parents) under this root; returns its path.
    std::string MakeDir(const std::string& systemPath) const;
    // Writes a file under this root, creating its directory; returns its path.
    std::string WriteFile(const std::string& systemPath, const std::string& contents) const;
    static std::string ReadFile(const std::string& path);

private:
    std::string m_dir;
};
