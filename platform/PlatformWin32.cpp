// Win32 forms of the platform services.
#include "platform/Platform.h"

#include <windows.h>
#include <malloc.h>
#include <shlobj.h>

#include <cstdint>
#include <vector>

namespace platform {

namespace {

std::string ToUtf8(const wchar_t* text) {
    const int bytes = WideCharToMultiByte(CP_UTF8, 0, text, -1, nullptr, 0, nullptr, nullptr);
    if (bytes <= 1) return std::string();
    std::string utf8(static_cast<size_t>(bytes), '\0');
    WideCharToMultiByte(CP_UTF8, 0, text, -1, &utf8[0], bytes, nullptr, nullptr);
    utf8.resize(static_cast<size_t>(bytes) - 1);
    return utf8;
}

std::wstring ToWide(const std::string& text) {
    const int characters = MultiByteToWideChar(CP_UTF8, 0, text.c_str(), -1, nullptr, 0);
    if (characters <= 1) return std::wstring();
    std::wstring wide(static_cast<size_t>(characters), L'\0');
    MultiByteToWideChar(CP_UTF8, 0, text.c_str(), -1, &wide[0], characters);
    wide.resize(static_cast<size_t>(characters) - 1);
    return wide;
}

}  // namespace

RecursiveLock::RecursiveLock() { InitializeCriticalSection(&native); }

RecursiveLock::~RecursiveLock() { DeleteCriticalSection(&native); }

void RecursiveLock::Enter() { EnterCriticalSection(&native); }

void RecursiveLock::Leave() { LeaveCriticalSection(&native); }

void SleepMilliseconds(uint32_t milliseconds) { Sleep(milliseconds); }

uint64_t QueryCounter() {
    LARGE_INTEGER now;
    QueryPerformanceCounter(&now);
    return static_cast<uint64_t>(now.QuadPart);
}

uint64_t QueryCounterFrequency() {
    LARGE_INTEGER frequency;
    QueryPerformanceFrequency(&frequency);
    return static_cast<uint64_t>(frequency.QuadPart);
}

// The runtime adds its own bookkeeping to the size without an overflow test, so a size near the
// top of the address space would come back as a tiny block: such sizes are refused here.
static bool FitsAlignedBlock(size_t size, size_t alignment) { return size <= SIZE_MAX - alignment - 2 * sizeof(void*); }

void* AlignedAlloc(size_t size, size_t alignment) {
    if (AllocationFaultDue()) return nullptr;
    return FitsAlignedBlock(size, alignment) ? _aligned_malloc(size ? size : 1, alignment) : nullptr;
}

// _aligned_realloc leaves the block in place when it fails, as callers rely on.
void* AlignedRealloc(void* block, size_t size, size_t alignment) {
    if (AllocationFaultDue()) return nullptr;
    return FitsAlignedBlock(size, alignment) ? _aligned_realloc(block, size ? size : 1, alignment) : nullptr;
}

void AlignedFree(void* block) { _aligned_free(block); }

std::FILE* OpenBinaryFile(const std::string& path, bool forWriting) {
    return _wfopen(ToWide(path).c_str(), forWriting ? L"wb" : L"rb");
}

std::string CommonAppDataFolder() {
    wchar_t folder[MAX_PATH] = {};
    if (FAILED(SHGetFolderPathW(nullptr, CSIDL_COMMON_APPDATA, nullptr, 0, folder))) return std::string();
    return ToUtf8(folder);
}

std::string HostExecutablePath() {
    wchar_t executable[MAX_PATH] = {};
    const DWORD length = GetModuleFileNameW(nullptr, executable, MAX_PATH);
    std::wstring path(executable, length < MAX_PATH ? length : 0);
    // Keep the folder: up to the last backslash, or else the drive up to the first colon.
    const size_t backslash = path.rfind(L'\\');
    const size_t colon = path.find(L':');
    if (backslash != std::wstring::npos)
        path.erase(backslash + 1);
    else if (colon != std::wstring::npos)
        path.erase(colon + 1);
    else
        path.clear();
    return ToUtf8((path + L"ArchiveHost.exe").c_str());
}

bool ReadProductVersion(const std::string& path, uint16_t parts[4]) {
    const std::wstring file = ToWide(path);
    DWORD ignored = 0;
    const DWORD size = GetFileVersionInfoSizeW(file.c_str(), &ignored);
    if (size == 0) return false;
    std::vector<uint8_t> data(size);
    if (!GetFileVersionInfoW(file.c_str(), 0, size, data.data())) return false;
    VS_FIXEDFILEINFO* info = nullptr;
    UINT infoSize = 0;
    if (!VerQueryValueW(data.data(), L"\\", reinterpret_cast<void**>(&info), &infoSize) || info == nullptr ||
        infoSize < sizeof(VS_FIXEDFILEINFO))
        return false;
    parts[0] = HIWORD(info->dwProductVersionMS);
    parts[1] = LOWORD(info->dwProductVersionMS);
    parts[2] = HIWORD(info->dwProductVersionLS);
    parts[3] = LOWORD(info->dwProductVersionLS);
    return true;
}

}  // namespace platform
