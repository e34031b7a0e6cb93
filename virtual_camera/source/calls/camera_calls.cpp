// Passes intercepted calls to the cameras they concern. Select and poll report the conditions that only a driver knows.
#include "calls/camera_calls.h"

#include <sys/mman.h>
#include <unistd.h>
#include <algorithm>
#include <vector>

#include "calls/registry.h"
#include "script/request_log.h"
#include "system/real_calls.h"

namespace virtual_camera::calls {
namespace {

using Files = std::vector<std::shared_ptr<Open_File>>;  // null for descriptors that belong to no camera

// Programs use larger sets than fd_set for high descriptors, so FD_ISSET would not do.
bool Holds(const fd_set* set, int fd)
{
    const auto* words = reinterpret_cast<const fd_mask*>(set);
    return set && (words[fd / NFDBITS] & (fd_mask{1} << (fd % NFDBITS))) != 0;
}

void Remove(fd_set* set, int fd)
{
    reinterpret_cast<fd_mask*>(set)[fd / NFDBITS] &= ~(fd_mask{1} << (fd % NFDBITS));
}

Time End_Of(Time timeout)
{
    return timeout == Never ? Never : Now() + timeout;
}

Time Remaining(Time end)
{
    return end == Never ? Never : std::max<Time>(end - Now(), 0);
}

Files Files_Of(const std::vector<pollfd>& entries)
{
    Files files;
    for (const pollfd& entry : entries) {
        files.push_back(entry.fd < 0 ? nullptr : Registry::Instance().File_Of(entry.fd));
    }
    return files;
}

bool Concerns_Camera(const Files& files)
{
    return std::any_of(files.begin(), files.end(), [](const auto& file) { return file != nullptr; });
}

// The kernel waits for two descriptors of a camera: one is ready for frames and errors, the other for events.
Answer Wait(std::vector<pollfd>& entries, const Files& files, Time end, const sigset_t* mask)
{
    std::vector<pollfd> waits = entries;
    for (size_t i = 0; i < entries.size(); i++) {
        if (files[i] && (entries[i].events & (POLLIN | POLLRDNORM)) == 0) {
            waits[i].fd = -1;
        }
        if (files[i] && (entries[i].events & POLLPRI) != 0) {
            waits.push_back({files[i]->camera->Event_Descriptor(*files[i]), POLLIN, 0});
        }
    }
    for (;;) {
        const int woken = real::Wait(waits.data(), waits.size(), Remaining(end), mask);
        if (woken < 0) {
            return {-1, errno};
        }
        int ready = 0;
        for (size_t i = 0; i < entries.size(); i++) {
            entries[i].revents = files[i] ? files[i]->camera->Poll(*files[i], entries[i].events) : waits[i].revents;
            ready += entries[i].revents != 0 ? 1 : 0;
        }
        if (woken == 0 || ready > 0) {
            return {ready, 0};
        }
    }
}

/// Converts select's sets to entries for poll.
std::vector<pollfd> Entries_Of(int count, const fd_set* read, const fd_set* write, const fd_set* except)
{
    std::vector<pollfd> entries;
    for (int fd = 0; fd < count; fd++) {
        const int events =
            (Holds(read, fd) ? POLLIN : 0) | (Holds(write, fd) ? POLLOUT : 0) | (Holds(except, fd) ? POLLPRI : 0);
        if (events != 0) {
            entries.push_back({fd, static_cast<short>(events), 0});
        }
    }
    return entries;
}

/// Keeps only the ready descriptors in a set. @return their number
int Keep_Ready(fd_set* set, const std::vector<pollfd>& entries, int asked, int granted)
{
    int kept = 0;
    for (const pollfd& entry : entries) {
        if ((entry.events & asked) != 0 && (entry.revents & granted) != 0) {
            kept++;
        } else if ((entry.events & asked) != 0) {
            Remove(set, entry.fd);
        }
    }
    return kept;
}

}  // namespace

int in_use = 0;

bool Open(const char* path, int flags, int* result)
{
    Errno_Keeper keeper;
    Answer answer;
    if (!Registry::Instance().Open(path, flags, answer)) {
        return false;
    }
    keeper.Set(answer.error);
    *result = answer.result;
    return true;
}

bool Ioctl(int fd, uint32_t request, void* argument, int* result)
{
    Errno_Keeper keeper;
    const auto file = Registry::Instance().File_Of(fd);
    if (!file) {
        return false;
    }
    const Answer answer = file->camera->Request(*file, fd, request, argument);
    keeper.Set(answer.error);
    *result = answer.result;
    return true;
}

bool Mmap(void* address, size_t length, int protection, int flags, int fd, int64_t offset, void** result)
{
    Errno_Keeper keeper;
    const auto file = Registry::Instance().File_Of(fd);
    if (!file) {
        return false;
    }
    *result = Registry::Instance().Map(file, fd, address, length, protection, flags, offset);
    keeper.Set(*result == MAP_FAILED ? errno : 0);
    return true;
}

void Munmap(void* address, size_t length)
{
    const Errno_Keeper keeper;
    if (length > 0 && reinterpret_cast<uintptr_t>(address) % static_cast<uintptr_t>(sysconf(_SC_PAGESIZE)) == 0) {
        Registry::Instance().Unmap(address, length);
    }
}

void Close(int fd)
{
    const Errno_Keeper keeper;
    Registry::Instance().Close(fd);
}

void Duplicate(int original, int copy)
{
    const Errno_Keeper keeper;
    Registry::Instance().Duplicate(original, copy);
}

bool Select(int count, fd_set* read, fd_set* write, fd_set* except, Time& timeout, int* result)
{
    Errno_Keeper keeper;
    std::vector<pollfd> entries = Entries_Of(count, read, write, except);
    const Files files = Files_Of(entries);
    if (!Concerns_Camera(files)) {
        return false;
    }
    size_t first = 0;  // the first camera that is to be read
    while (first < files.size() && (!files[first] || (entries[first].events & POLLIN) == 0)) {
        first++;
    }
    const bool reads = first < files.size();
    const Time given = timeout, end = End_Of(timeout);
    const auto script = reads ? files[first]->camera->Scripted().selects.Take(Call_Select) : std::nullopt;
    Answer answer;
    if (script) {
        answer = *script;
        entries[first].revents = static_cast<short>(script->result > 0 ? POLLIN : 0);
    } else {
        answer = Wait(entries, files, end, nullptr);
        timeout = Remaining(end);
    }
    if (std::any_of(entries.begin(), entries.end(), [](const pollfd& e) { return (e.revents & POLLNVAL) != 0; })) {
        answer = {-1, EBADF};
    }
    if (answer.result >= 0) {
        const int ready = Keep_Ready(read, entries, POLLIN, POLLIN | POLLHUP | POLLERR) +
                          Keep_Ready(write, entries, POLLOUT, POLLOUT | POLLERR) +
                          Keep_Ready(except, entries, POLLPRI, POLLPRI);
        answer.result = script ? answer.result : ready;
    }
    if (reads && Is_Logging()) {
        Log_Entry entry = Call_Entry(Call_Select, files[first]->node, entries[first].fd, answer.result, answer.error);
        entry.value = count;
        entry.timeout_us = given == Never ? -1 : given / 1000;
        Append_To_Log(std::move(entry));
    }
    keeper.Set(answer.error);
    *result = answer.result;
    return true;
}

bool Poll(pollfd* entries, nfds_t count, Time timeout, const sigset_t* mask, int* result)
{
    Errno_Keeper keeper;
    std::vector<pollfd> asked(entries, entries + count);
    const Files files = Files_Of(asked);
    if (!Concerns_Camera(files)) {
        return false;
    }
    const Answer answer = Wait(asked, files, End_Of(timeout), mask);
    std::copy(asked.begin(), asked.end(), entries);
    keeper.Set(answer.error);
    *result = answer.result;
    return true;
}

}  // namespace virtual_camera::calls
