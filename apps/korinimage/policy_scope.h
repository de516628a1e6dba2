#pragma once

#include <memory>

#include "korinimage/exceptions.h"
#include "korinimage/image.h"

namespace korin::app {

// Puts an image's manager under another allocation policy for a while. What
// statistics measure follows the policy: stored values by the kernels under Planes,
// physical values row by row under Blocks. The layout of existing images stays.
class PolicyScope {
 public:
  PolicyScope(const CImage& image, CVmManager::AllocationPolicy policy)
      : m_manager(image.VmManager()) {
    if (m_manager == nullptr) throw CVmManagerHandleDeletedError();
    m_before = m_manager->GetAllocationPolicy();
    m_manager->SetAllocationPolicy(policy);
  }
  PolicyScope(const PolicyScope&) = delete;
  PolicyScope& operator=(const PolicyScope&) = delete;
  ~PolicyScope() { m_manager->SetAllocationPolicy(m_before); }

 private:
  std::shared_ptr<CVmManager> m_manager;
  CVmManager::AllocationPolicy m_before = CVmManager::AllocationPolicy::Blocks;
};

}  // namespace korin::app
