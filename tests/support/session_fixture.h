// A session on a virtual camera whose frames are held back, and a thread for its capture loop.
#ifndef WQZ_TESTS_SESSION_FIXTURE_H
#define WQZ_TESTS_SESSION_FIXTURE_H

#include <thread>

#include "support/camera_fixture.h"
#include "USBCam/USBCam.h"

constexpr Pix_Format Mjpeg{0, 320, 240, 30};
constexpr Pix_Format Yuyv{1, 320, 240, 30};

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

    void Stop()
    {
        if (loop.joinable()) {
            session.EVENT_LoopMode(0);
            loop.join();
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
};

#endif  // WQZ_TESTS_SESSION_FIXTURE_H
