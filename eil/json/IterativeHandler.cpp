#include "eil/json/IterativeHandler.h"

#include <utility>

namespace KALVO::EIL::Json {

bool IterativeHandler::Add(Json value) {
    if (m_name) {
        CreateObjectChild(*m_current, std::exchange(m_name, std::nullopt), std::move(value));
    } else if (m_current->IsNull()) {
        *m_current = std::move(value);  // the root itself is a scalar
    } else {
        CreateArrayChild(*m_current, std::move(value));
    }
    return true;
}

bool IterativeHandler::Open(Type container) {
    if (m_depth == MaxParseDepth) return false;
    ++m_depth;
    if (m_current->IsArray()) {
        m_current = &CreateArrayChild(*m_current, container);
    } else if (m_current->IsObject()) {
        m_current = &CreateObjectChild(*m_current, std::exchange(m_name, std::nullopt), container);
    } else {
        *m_current = Json(container);  // the root
    }
    return true;
}

bool IterativeHandler::Close() noexcept {
    // Array elements may have moved since they were opened (their array grew), but the parent
    // links are kept current, so the way up is always valid.
    m_current = m_current->GetParent();
    --m_depth;
    return true;
}

}  // namespace KALVO::EIL::Json
