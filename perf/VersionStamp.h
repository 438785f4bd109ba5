// The stamp that ties the benchmark cache file to the installed host version.
#pragma once

#include <cstdint>
#include <string>

// Low byte of major, minor, build and revision, from the high byte of the stamp down.
uint32_t ComposeVersionStamp(const uint16_t parts[4]);

// Stamp of the executable at path; 0 when it has no readable version record.
uint32_t VersionStampOf(const std::string& path);

// Stamp of "ArchiveHost.exe" beside the running executable.
uint32_t HostVersionStamp();
