// Ownership of one frame record of the pools.
#ifndef WQZ_FRAME_RECORD_H
#define WQZ_FRAME_RECORD_H

#include <cstdint>
#include <memory>

#include "Stream/frame_buffer.h"

/// Frees a record of the pools with its bytes.
struct Free_Record {
    void operator()(Frame_Buffer_Data* record) const
    {
        delete[] static_cast<uint8_t*>(record->pMem);
        delete record;
    }
};

/// A record in the hands of the session.
using Record_In_Hand = std::unique_ptr<Frame_Buffer_Data, Free_Record>;

#endif  // WQZ_FRAME_RECORD_H
