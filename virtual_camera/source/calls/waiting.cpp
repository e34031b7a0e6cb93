// Select and poll on descriptors of cameras: scripted answers, conditions that only a driver reports, and the log.
#include <cerrno>
#include <vector>

#include "calls/camera_calls.h"
#include "calls/errno_keeper.h"
#include "calls/registry.h"
#include "script/request_log.h"
#include "system/real_calls.h"

namespace virtual_camera::calls {
namespace {

constexpr short Read_Events = POLLIN | POLLRDNORM;

// Sets larger than fd_set are in use for descriptors beyond it, hence no FD_ISSET.
bool Holds(const fd_set* set, int fd)
{
    const auto* words = reinterpret_cast<const fd_mask*>(set);
    return set && (words[fd / NFDBITS] & (fd_mask{1} << (fd % NFDBITS))) != 0;
}

void Clear_Set(fd_set* set, int count)
{
    auto* words = reinterpret_cast<fd_mask*>(set);
    for (int i = 0; set && i * NFDBITS < count; i++) {
        words[i] = 0;
    }
}

void Insert(fd_set* set, int fd)
{
    reinterpret_cast<fd_mask*>(set)[fd / NFDBITS] |= fd_mask{1} << (fd % NFDBITS);
}

/// The first camera that a select call asks about, and whether more than reading is asked of any camera.
struct Asked {
    std::shared_ptr<Open_File> file;
    int fd = -1;
    bool beyond_reading = false;
};

Asked Look_At(int count, const fd_set* read, const fd_set* write, const fd_set* except)
{
    Asked asked;
    for (int fd = 0; fd < count; fd++) {
        const bool reads = Holds(read, fd), more = Holds(write, fd) || Holds(except, fd);
        const auto file = reads || more ? Registry::Instance().File_Of(fd) : nullptr;
        if (file && reads && !asked.file) {
            asked.file = file;
            asked.fd = fd;
        }
        asked.beyond_reading = asked.beyond_reading || (file && more);
    }
    return asked;
}

Answer To_Answer(int result)
{
    return {result, result < 0 ? errno : 0};
}

timespec Remaining(Time end)
{
    const Time left = std::max<Time>(end - Now(), 0);
    return {left / Second, left % Second};
}

/// The kernel waits for what it can see of a camera: its descriptor for frames and errors, another one for events.
std::vector<pollfd> Kernel_Entries(const pollfd* entries, nfds_t count, std::vector<std::shared_ptr<Open_File>>& files)
{
    std::vector<pollfd> waits(entries, entries + count);
    for (nfds_t i = 0; i < count; i++) {
        files.push_back(entries[i].fd < 0 ? nullptr : Registry::Instance().File_Of(entries[i].fd));
        if (!files[i]) {
            continue;
        }
        waits[i].events = POLLIN;
        if ((entries[i].events & Read_Events) == 0) {
            waits[i].fd = -1;
        }
        if ((entries[i].events & POLLPRI) != 0) {
            waits.push_back({files[i]->camera->Event_Descriptor(*files[i]), POLLIN, 0});
        }
    }
    return waits;
}

Answer Poll_Cameras(pollfd* entries, nfds_t count, const timespec* timeout, const sigset_t* mask)
{
    std::vector<std::shared_ptr<Open_File>> files;
    std::vector<pollfd> waits = Kernel_Entries(entries, count, files);
    const Time end = timeout ? Now() + timeout->tv_sec * Second + timeout->tv_nsec : Never;
    for (;;) {
        const timespec left = Remaining(end);
        const int woken = real::Ppoll(waits.data(), waits.size(), timeout ? &left : nullptr, mask);
        int ready = 0;
        for (nfds_t i = 0; i < count && woken >= 0; i++) {
            entries[i].revents = files[i] ? files[i]->camera->Poll(*files[i], entries[i].events) : waits[i].revents;
            ready += entries[i].revents != 0 ? 1 : 0;
        }
        if (woken <= 0 || ready > 0) {
            return woken < 0 ? To_Answer(woken) : Answer{ready, 0};
        }
    }
}

Answer Select_By_Poll(int count, fd_set* read, fd_set* write, fd_set* except, timeval* timeout)
{
    std::vector<pollfd> entries;
    for (int fd = 0; fd < count; fd++) {
        const int events =
            (Holds(read, fd) ? POLLIN : 0) | (Holds(write, fd) ? POLLOUT : 0) | (Holds(except, fd) ? POLLPRI : 0);
        if (events != 0) {
            entries.push_back({fd, static_cast<short>(events), 0});
        }
    }
    const Time end = timeout ? Now() + timeout->tv_sec * Second + timeout->tv_usec * 1000 : Never;
    const timespec left = timeout ? Remaining(end) : timespec{};
    Answer answer = Poll_Cameras(entries.data(), entries.size(), timeout ? &left : nullptr, nullptr);
    for (const pollfd& entry : entries) {
        answer = (entry.revents & POLLNVAL) != 0 ? Answer{-1, EBADF} : answer;
    }
    if (answer.error != 0) {
        return answer;
    }
    struct Sorted {
        fd_set* set;
        int asked, granted;
    };
    answer.result = 0;
    for (const Sorted& sorted : {Sorted{read, POLLIN, POLLIN | POLLHUP | POLLERR},
                                 {write, POLLOUT, POLLOUT | POLLERR},
                                 {except, POLLPRI, POLLPRI}}) {
        Clear_Set(sorted.set, count);
        for (const pollfd& entry : entries) {
            if ((entry.events & sorted.asked) != 0 && (entry.revents & sorted.granted) != 0) {
                Insert(sorted.set, entry.fd);
                answer.result++;
            }
        }
    }
    if (timeout) {
        const timespec rest = Remaining(end);
        *timeout = {rest.tv_sec, rest.tv_nsec / 1000};
    }
    return answer;
}

Answer Scripted_Select(const Asked& asked, const Select_Answer& script, int count, fd_set* read, fd_set* write,
                       fd_set* except)
{
    if (script.result >= 0) {
        Clear_Set(read, count);
        Clear_Set(write, count);
        Clear_Set(except, count);
    }
    if (script.result > 0) {
        Insert(read, asked.fd);
    }
    return {script.result, script.error};
}

}  // namespace

int Select(int count, fd_set* read, fd_set* write, fd_set* except, timeval* timeout)
{
    Errno_Keeper keeper;
    const Asked asked = Look_At(count, read, write, except);
    const int64_t timeout_us = timeout ? timeout->tv_sec * 1'000'000 + timeout->tv_usec : -1;
    const auto script = asked.file ? asked.file->camera->Scripted().Take_Select() : std::nullopt;
    Answer answer;
    if (script) {
        answer = Scripted_Select(asked, *script, count, read, write, except);
    } else if (asked.beyond_reading) {
        answer = Select_By_Poll(count, read, write, except, timeout);
    } else {
        answer = To_Answer(real::Select(count, read, write, except, timeout));
    }
    if (asked.file && Is_Logging()) {
        Log_Entry entry = Call_Entry(Call_Select, asked.file->node, asked.fd, answer.result, answer.error);
        entry.value = count;
        entry.timeout_us = timeout_us;
        Append_To_Log(std::move(entry));
    }
    keeper.Set(answer.error);
    return answer.result;
}

bool Poll(pollfd* entries, nfds_t count, const timespec* timeout, const sigset_t* mask, int* result)
{
    Errno_Keeper keeper;
    bool concerns_camera = false;
    for (nfds_t i = 0; i < count && !concerns_camera; i++) {
        concerns_camera = entries[i].fd >= 0 && Registry::Instance().File_Of(entries[i].fd) != nullptr;
    }
    if (!concerns_camera) {
        return false;
    }
    const Answer answer = Poll_Cameras(entries, count, timeout, mask);
    keeper.Set(answer.error);
    *result = answer.result;
    return true;
}

}  // namespace virtual_camera::calls
