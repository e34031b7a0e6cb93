// A session on a virtual camera whose frames are held back, and threads for capture loops.
#ifndef WQZ_TESTS_SESSION_FIXTURE_H
#define WQZ_TESTS_SESSION_FIXTURE_H

#include <thread>
#include <utility>

#include "support/camera_fixture.h"
#include "support/record_tally.h"
#include "USBCam/USBCam.h"

constexpr Pix_Format Mjpeg{0, 320, 240, 30};
constexpr Pix_Format Yuyv{1, 320, 240, 30};

/// Takes all eight records before the loop can.
class Greedy : public USBCam {
public:
    using USBCam::USBCam;
    int32_t Video_Stream_Start_Stream() override
    {
        for (Frame_Buffer_Data*& record : held) {
            record = GET_FRAME_RES();
        }
        return USBCam::Video_Stream_Start_Stream();
    }
    std::thread Capture()
    {
        return std::thread([this] {
            Pix_Format mode = Mjpeg;
            Video_DEAL_WITH(&mode);
        });
    }
    void Give_Back()
    {
        for (Frame_Buffer_Data*& record : held) {
            SAVE_FRAME_RES(std::exchange(record, nullptr));
        }
    }
    Frame_Buffer_Data* held[8] = {};
};

class Session_Fixture : public Camera_Fixture {
protected:
    Session_Fixture() : record(Camera_Record()), session(&record)
    {
        EXPECT_EQ(session.Video_DEAL_WITH_INIT(17), 0);
        EXPECT_EQ(session.iFd, 17);
        virtual_camera::Hold_Frames(Node);
        virtual_camera::Clear_Log();
    }
    ~Session_Fixture() override
    {
        Stop();
        session.Video_Exe_End();
        session.CLEAR_FRAME_BUFF();
    }

    // Runs the loop on a thread of its own.
    void Capture(const Pix_Format& mode)
    {
        loop = std::thread([this, mode] {
            Pix_Format request = mode;
            result = session.Video_DEAL_WITH(&request);
        });
    }

    // Once per capture.
    void Deliver(uint32_t count)
    {
        produced = count;
        virtual_camera::Deliver_Frames(Node, count);
    }

    // Takes the oldest frame.
    Frame_Buffer_Data* Take()
    {
        Frame_Buffer_Data* frame = session.GET_FRAME_BUFF(false);
        if (frame != nullptr) {
            tally.Add(*frame);
        }
        return frame;
    }

    void Stop()
    {
        if (loop.joinable()) {
            session.EVENT_LoopMode(0);
            loop.join();
            tally.Expect_Handed_Out(Numbers_Handed_Out(Node));
            if (tally.Delivered() > 0) {
                tally.Expect_Balance(produced);
            }
        }
    }

    // Runs the loop here until its budget is spent.
    int32_t Capture_Counted(Pix_Format mode, int32_t budget)
    {
        session.EVENT_LoopMode(budget);
        return session.Video_DEAL_WITH(&mode);
    }

    v4l2_dev_sys_data_t record;
    USBCam session;
    std::thread loop;
    int32_t result = 99;
    Record_Tally tally;     // of what Take took; a test that takes frames takes the last one too
    uint64_t produced = 0;  // by the camera
};

#endif  // WQZ_TESTS_SESSION_FIXTURE_H
