#include "Application/zk_drag_stream.h"

#include <algorithm>
#include <cstring>
#include <mutex>

#include "Middleware/log.h"

std::atomic<int> drag_teach_count{0};
std::atomic<int> drag_teach_total_num{0};
std::atomic<int> drag_teach_save_start{0};
std::atomic<int> drag_teach_save_state{0};
std::atomic<int> drag_teach_save_complete{0};

namespace {

std::mutex g_file_mutex;
FILE* F_SaveDragTeach = nullptr;  // guarded by g_file_mutex

constexpr size_t kPointScratchSize = 2048;
// In single mode the stream's end is not announced: it is taken as ended after this many
// wait rounds in a row without data.
constexpr int kSingleModeIdleRoundsToComplete = 1000;

}  // namespace

bool drag_teach_file_open(const char* path)
{
    std::lock_guard<std::mutex> lock(g_file_mutex);
    if (F_SaveDragTeach != nullptr) std::fclose(F_SaveDragTeach);
    F_SaveDragTeach = path ? std::fopen(path, "w") : nullptr;
    return F_SaveDragTeach != nullptr;
}

void drag_teach_file_close()
{
    std::lock_guard<std::mutex> lock(g_file_mutex);
    if (F_SaveDragTeach != nullptr) std::fclose(F_SaveDragTeach);
    F_SaveDragTeach = nullptr;
}

bool drag_teach_file_is_open()
{
    std::lock_guard<std::mutex> lock(g_file_mutex);
    return F_SaveDragTeach != nullptr;
}

bool drag_teach_file_write(const char* format, const char* text)
{
    std::lock_guard<std::mutex> lock(g_file_mutex);
    if (F_SaveDragTeach == nullptr) return false;
    std::fprintf(F_SaveDragTeach, format, text);
    std::fflush(F_SaveDragTeach);
    return true;
}

void drag_teach_single_mode_point(const zk_handle_t* handle, const char* frame, int length)
{
    drag_teach_save_start = 1;
    char scratch[kPointScratchSize] = {};
    const size_t copied = std::min(static_cast<size_t>(length > 0 ? length : 0), sizeof scratch - 1);
    std::memcpy(scratch, frame, copied);
    std::lock_guard<std::mutex> lock(g_file_mutex);
    if (F_SaveDragTeach == nullptr) {
        drag_teach_save_state = 1;
        return;
    }
    drag_teach_save_state = 0;
    std::fprintf(F_SaveDragTeach, "%s", scratch);
    zk_log_debug("drag_save len %d robot_handle: %d drag_save:%s\n", length, handle ? handle->id : 0, scratch);
    std::fflush(F_SaveDragTeach);
}

void drag_teach_single_mode_idle_round()
{
    if (drag_teach_save_start == 0) return;
    if (++drag_teach_count > kSingleModeIdleRoundsToComplete) drag_teach_save_complete = 1;
}
