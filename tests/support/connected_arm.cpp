#include "support/connected_arm.h"

#include <stdexcept>

#include "Application/zk_handle.h"

namespace zk_test {

ConnectedArm::ConnectedArm(zk_thread_mode_e mode, const std::string& product)
{
    controller_.answer_sync(product);
    // Earlier tests in the same process may have shortened the time-outs.
    m_nOutTime = 500;
    m_nOutTime_max = 1000;
    zk_init(mode);
    handle_ = zk_create_robot_arm(ScriptedController::ip(), controller_.port());
    if (handle_ == nullptr || handle_->id < 1) throw std::runtime_error("arm did not connect");
    frames_at_connect_ = controller_.frames().size();
}

ConnectedArm::~ConnectedArm()
{
    zk_delete_robot_arm(handle_);
    zk_destory();
}

std::vector<std::string> ConnectedArm::sent() const
{
    auto all = controller_.frames();
    return std::vector<std::string>(all.begin() + static_cast<long>(std::min(frames_at_connect_, all.size())), all.end());
}

}  // namespace zk_test
