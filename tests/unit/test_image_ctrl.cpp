// Camera command set over a recording transport: the packets each operation
// builds, the replies it accepts and the ones it refuses.
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "camera/image_ctrl.h"
#include "debug_texts.h"
#include "fake_camera.h"

namespace {

using fake::Bytes;

class ImageCtrl : public fake::FakeCameraTest {
protected:
    void reply(Bytes b) { camera.queue.push_back(std::move(b)); }
    void fail() { camera.queue.push_back(std::nullopt); }
    Bytes only_sent(const char* how = "nowait") {
        auto s = camera.sends();
        EXPECT_EQ(s.size(), 1u);
        if (s.empty()) return {};
        EXPECT_EQ(s[0].how, how);
        return s[0].packet;
    }
};

// ---- named choices and value encodings ----------------------------------------------------

TEST_F(ImageCtrl, ChoiceSettersMatchWordsAndRefuseOthers) {
    EXPECT_EQ(image_focus_distance_set("1.5m"), 0);
    EXPECT_EQ(image_focus_distance_set("10m"), 0);
    EXPECT_EQ(image_focus_distance_set("5m"), -1);
    EXPECT_EQ(image_exposure_mode_set("AUTO"), 0);
    EXPECT_EQ(image_wb_mode_set("One Push"), 0);
    EXPECT_EQ(image_focus_mode_set("automatic"), -1);
    EXPECT_EQ(image_focus_mode_set(nullptr), -1);
    auto s = camera.sends();
    ASSERT_EQ(s.size(), 4u);
    EXPECT_EQ(s[0].packet, (Bytes{0x81, 0x01, 0x04, 0x28, 0x00, 0x00, 0x00, 0x00, 0xFF}));
    EXPECT_EQ(s[1].packet, (Bytes{0x81, 0x01, 0x04, 0x28, 0x04, 0x00, 0x00, 0x00, 0xFF}));
    EXPECT_EQ(s[2].packet, (Bytes{0x81, 0x01, 0x04, 0x39, 0x00, 0xFF}));
    EXPECT_EQ(s[3].packet, (Bytes{0x81, 0x01, 0x04, 0x35, 0x03, 0xFF}));
    for (const auto& e : s) EXPECT_EQ(e.how, "nowait");
}

TEST_F(ImageCtrl, NumericEncodings) {
    EXPECT_EQ(image_nr3d_set(5), 0);       // level 5 switches it off
    EXPECT_EQ(image_nr3d_set(0), 0);
    EXPECT_EQ(image_nr3d_set(6), -1);
    EXPECT_EQ(image_nr3d_set(-1), -1);
    EXPECT_EQ(image_mirror_set(7), 0);     // any non-zero is on
    EXPECT_EQ(image_flip_set(0), 0);
    EXPECT_EQ(image_gamma_set(0x1F), 0);   // one nibble
    EXPECT_EQ(image_preset_move_speed_set(0xFF), 0);  // seven bits
    EXPECT_EQ(image_brightness_set(0x1A7), 0);         // low byte as two nibbles
    EXPECT_EQ(image_genlock_phase_set(-2), 0);         // 16 bits as four nibbles
    EXPECT_EQ(image_frame_rate_set(0x3C), 0);
    auto s = camera.sends();
    ASSERT_EQ(s.size(), 9u);
    EXPECT_EQ(s[0].packet, (Bytes{0x81, 0x01, 0x04, 0x53, 0x00, 0xFF}));
    EXPECT_EQ(s[1].packet, (Bytes{0x81, 0x01, 0x04, 0x53, 0x01, 0xFF}));
    EXPECT_EQ(s[2].packet, (Bytes{0x81, 0x01, 0x04, 0x61, 0x02, 0xFF}));
    EXPECT_EQ(s[3].packet, (Bytes{0x81, 0x01, 0x04, 0x66, 0x03, 0xFF}));
    EXPECT_EQ(s[4].packet, (Bytes{0x81, 0x01, 0x04, 0x5B, 0x0F, 0xFF}));
    EXPECT_EQ(s[5].packet, (Bytes{0x81, 0x01, 0x7E, 0x01, 0x0B, 0x00, 0x7F, 0xFF}));
    EXPECT_EQ(s[6].packet, (Bytes{0x81, 0x01, 0x04, 0xA4, 0x00, 0x00, 0x0A, 0x07, 0xFF}));
    EXPECT_EQ(s[7].packet, (Bytes{0x81, 0x01, 0x04, 0x3B, 0x0F, 0x0F, 0x0F, 0x0E, 0xFF}));
    EXPECT_EQ(s[8].packet, (Bytes{0x81, 0x01, 0x04, 0xC7, 0x03, 0x0C, 0xFF}));
}

TEST_F(ImageCtrl, WaitingSettersAwaitTheReply) {
    EXPECT_EQ(image_feature_size_set(0x90), -1);  // a byte above 7F would break the framing
    reply({0x90, 0x50, 0xFF});
    EXPECT_EQ(image_feature_size_set(0x70), 0);
    fail();
    EXPECT_EQ(image_feature_set_set(1), -1);
    reply({0x90, 0x50, 0xFF});
    EXPECT_EQ(image_feature_pos_set(0x1234, 0xABCD), 0);
    auto s = camera.sends();
    ASSERT_EQ(s.size(), 3u);
    EXPECT_EQ(s[0].how, "wait");
    EXPECT_EQ(s[0].capacity, -1);
    EXPECT_EQ(s[0].packet, (Bytes{0x81, 0x01, 0x04, 0x24, 0x74, 0x00, 0x70, 0xFF}));
    EXPECT_EQ(s[2].packet, (Bytes{0x81, 0x01, 0x06, 0x32, 0x00, 0x00, 0x01, 0x02, 0x03, 0x04, 0x0A,
                                  0x0B, 0x0C, 0x0D, 0xFF}));
}

// ---- mode gates ------------------------------------------------------------------------

TEST_F(ImageCtrl, GatedSettersAskTheModeFirst) {
    reply({3, 0x50, 0xFF});                 // shutter priority: no iris
    EXPECT_EQ(image_iris_set(0x1C), -1);
    ASSERT_EQ(camera.sends().size(), 1u);
    EXPECT_EQ(camera.sends()[0].packet, (Bytes{0x81, 0x09, 0x04, 0x39, 0xFF}));
    EXPECT_EQ(camera.sends()[0].capacity, 5);

    camera.log.clear();
    reply({1, 0x50, 0xFF});                 // manual
    EXPECT_EQ(image_iris_set(0x1C), 0);
    auto s = camera.sends();
    ASSERT_EQ(s.size(), 2u);
    EXPECT_EQ(s[1].how, "nowait");
    EXPECT_EQ(s[1].packet, (Bytes{0x81, 0x01, 0x04, 0x4B, 0x00, 0x00, 0x01, 0x0C, 0xFF}));

    camera.log.clear();
    fail();
    EXPECT_EQ(image_gain_set(4), -1);
    EXPECT_EQ(camera.sends().size(), 1u);      // only the inquiry

    reply({3});
    EXPECT_EQ(image_shutter_set(5), 0);     // shutter priority
    reply({2});
    EXPECT_EQ(image_shutter_set(5), -1);    // iris priority
    reply({0});
    EXPECT_EQ(image_gain_limit_set(0x12), 0);
    reply({6});
    EXPECT_EQ(image_r_gain_set(1), -1);     // temperature mode: no red gain
    reply({6});
    EXPECT_EQ(image_color_temperature_set(0x1234), 0);
    s = camera.sends();
    EXPECT_EQ(s.back().packet, (Bytes{0x81, 0x01, 0x04, 0x2A, 0x01, 0x02, 0x03, 0x04, 0xFF}));
    EXPECT_EQ(s[s.size() - 2].packet, (Bytes{0x81, 0x09, 0x04, 0x35, 0xFF}));
}

// ---- reply forms ------------------------------------------------------------------------

TEST_F(ImageCtrl, FirstByteAndWordForms) {
    reply({0x02, 0x50, 0xFF, 0x00, 0x00, 0x00});
    EXPECT_EQ(image_focus_area_get(), 2);
    EXPECT_EQ(camera.log.back().capacity, 6);  // six-byte inquiry
    reply({0x34, 0x12});
    EXPECT_EQ(image_color_temperature_get(), 0x1234);
    reply({0x07});
    EXPECT_EQ(image_abs_focus_get(), 7);
    EXPECT_EQ(camera.log.back().capacity, 16);
    fail();
    EXPECT_EQ(image_wb_mode_get(), -1);
    reply({});
    EXPECT_EQ(image_zoom_pos_get(), -1);     // nothing came back
}

TEST_F(ImageCtrl, CompletionForms) {
    reply({0x90, 0x50, 0x02, 0xFF});
    EXPECT_EQ(image_dc_iris_get(), 1);
    EXPECT_EQ(camera.log.back().capacity, 5);
    reply({0x90, 0x50, 0x03, 0xFF});
    EXPECT_EQ(image_phantom_power_get(), 0);
    reply({0x90, 0x60, 0x02, 0xFF});        // not a completion
    EXPECT_EQ(image_dc_iris_get(), -1);
    reply({0x90, 0x50, 0x45, 0xFF});
    EXPECT_EQ(image_nd_filter_get(), 0x45);
    EXPECT_EQ(camera.log.back().capacity, 16);
    reply({0x90, 0x51, 0x45, 0xFF});
    EXPECT_EQ(image_tally_bright_get(), -1);

    reply({0x90, 0x50, 0x0F, 0x0F, 0x0F, 0x0E, 0xFF});
    EXPECT_EQ(image_genlock_phase_get(), -2);  // signed
    reply({0x90, 0x50, 0x00, 0x00, 0x01, 0x00, 0xFF, 0x00});
    EXPECT_EQ(image_genlock_phase_get(), -1);  // must be exactly 7 bytes
    reply({0x90, 0x50, 0x0F, 0x0F, 0x0F, 0x0E, 0x00, 0xFF});
    EXPECT_EQ(image_genlock_vertical_get(), 0xFFFE);

    int a = 0, b = 0;
    reply({0x90, 0x50, 0x01, 0x02, 0x03, 0x04, 0x0A, 0x0B, 0x0C, 0x0D, 0xFF});
    EXPECT_EQ(image_feature_pos_get(&a, &b), 0);
    EXPECT_EQ(a, 0x1234);
    EXPECT_EQ(b, 0xABCD);
    reply({0x90, 0x50, 0x01, 0x02, 0x03, 0x04, 0x0A, 0x0B, 0x0C, 0xFF});
    EXPECT_EQ(image_feature_pos_get(&a, &b), -1);
}

TEST_F(ImageCtrl, PanTiltPositionIsTwoSignedWords) {
    reply({0x00, 0x80, 0, 0, 0xFE, 0xFF, 0, 0});
    int16_t pan = 0, tilt = 0;
    EXPECT_EQ(image_pt_pos_get(&pan, &tilt), 0);
    EXPECT_EQ(pan, -32768);
    EXPECT_EQ(tilt, -2);
    EXPECT_EQ(camera.log.back().packet, (Bytes{0x81, 0x09, 0x06, 0x12, 0xFF}));
    EXPECT_EQ(camera.log.back().capacity, 8);
    reply({0x10, 0x00, 0, 0, 0x20, 0x00, 0, 0});
    EXPECT_EQ(image_tilt_pos_get(), 0x20);
    fail();
    EXPECT_EQ(image_pan_pos_get(), -1);
}

// ---- IR-cut filter ------------------------------------------------------------------------

TEST_F(ImageCtrl, IrCutReadAndWrite) {
    reply({0x01, 0x50, 0xFF});
    EXPECT_EQ(image_ircut_get(), 2);
    EXPECT_EQ(camera.sends().size(), 1u);

    camera.log.clear();
    reply({0x00, 0x50, 0xFF});              // three bytes came back
    reply({0x90, 0x50, 0x02, 0xFF});
    EXPECT_EQ(image_ircut_get(), 1);
    auto s = camera.sends();
    ASSERT_EQ(s.size(), 2u);
    EXPECT_EQ(s[0].capacity, 5);
    EXPECT_EQ(s[1].packet, (Bytes{0x81, 0x09, 0x04, 0x01, 0xFF}));
    EXPECT_EQ(s[1].capacity, 3);            // the first exchange's count

    reply({0x00, 0x50, 0xFF});
    reply({0x90, 0x50, 0x03, 0xFF});
    EXPECT_EQ(image_ircut_get(), 0);
    reply({0x00});                          // one byte: the filter reply is cut to one
    reply({0x90, 0x50, 0x02, 0xFF});
    EXPECT_EQ(image_ircut_get(), -1);
    reply({0x00, 0x50, 0xFF});
    fail();
    EXPECT_EQ(image_ircut_get(), -1);

    camera.log.clear();
    EXPECT_EQ(image_ircut_set(2), 0);
    EXPECT_EQ(image_ircut_set(1), 0);
    EXPECT_EQ(image_ircut_set(0), 0);
    s = camera.sends();
    ASSERT_EQ(s.size(), 5u);
    EXPECT_EQ(s[0].packet, (Bytes{0x81, 0x01, 0x04, 0x51, 0x02, 0xFF}));
    EXPECT_EQ(s[1].packet, (Bytes{0x81, 0x01, 0x04, 0x51, 0x03, 0xFF}));
    EXPECT_EQ(s[2].packet, (Bytes{0x81, 0x01, 0x04, 0x01, 0x02, 0xFF}));
    EXPECT_EQ(s[4].packet, (Bytes{0x81, 0x01, 0x04, 0x01, 0x03, 0xFF}));
}

// ---- output format ------------------------------------------------------------------------

TEST_F(ImageCtrl, ResolutionTableAndSelectors) {
    reply({0x90, 0x50, 0xFF});
    EXPECT_EQ(image_resolution_set(1, "3840x2160p@60hz"), 0);
    auto s = camera.sends();
    ASSERT_EQ(s.size(), 1u);
    EXPECT_EQ(s[0].how, "wait");
    EXPECT_EQ(s[0].capacity, 8);
    EXPECT_EQ(s[0].packet, (Bytes{0x81, 0x01, 0x04, 0x24, 0x73, 0x01, 0x0F, 0xFF}));

    EXPECT_EQ(image_resolution_set(0, "3840X2160P@24Hz"), -1);   // readable, not settable
    EXPECT_EQ(image_resolution_set(3, "1920X1080P@60Hz"), -1);
    EXPECT_EQ(image_resolution_set(0, "1920X1080P@61Hz"), -1);
    EXPECT_EQ(image_resolution_set(0, nullptr), -1);
    EXPECT_EQ(camera.sends().size(), 1u);

    reply({0x1B, 0x50, 0xFF});
    const char* f = image_resolution_get(2);
    ASSERT_NE(f, nullptr);
    EXPECT_STREQ(f, "3840X2160P@24Hz");
    EXPECT_EQ(camera.log.back().packet, (Bytes{0x81, 0x09, 0x04, 0x24, 0x74, 0xFF}));
    EXPECT_EQ(camera.log.back().capacity, 6);
    reply({0x2F});
    EXPECT_STREQ(image_resolution_get(0), "1920X1080P@50Hz");
    reply({0x03});                          // empty code
    EXPECT_EQ(image_resolution_get(0), nullptr);
    reply({48});
    EXPECT_EQ(image_resolution_get(0), nullptr);
    reply({0x00});
    EXPECT_EQ(image_resolution_get(0), nullptr);
    EXPECT_EQ(image_resolution_get(-1), nullptr);
}

// ---- drives --------------------------------------------------------------------------------

TEST_F(ImageCtrl, ZoomAndFocusDrives) {
    EXPECT_EQ(image_zoom_ctrl(1, 8), -1);
    EXPECT_EQ(image_zoom_ctrl(3, 1), -1);
    EXPECT_EQ(image_focus_ctrl(1, 8), -1);
    EXPECT_TRUE(camera.sends().empty());
    EXPECT_EQ(image_zoom_ctrl(2, 7), 0);
    EXPECT_EQ(image_focus_ctrl(0, 3), 0);
    EXPECT_EQ(image_focus_ctrl(1, 3), 0);
    EXPECT_EQ(image_zoom_drive(1, 0x1A), 0);   // only the low four bits
    EXPECT_EQ(image_focus_drive(9, 3), 0);     // unknown direction stops
    auto s = camera.sends();
    ASSERT_EQ(s.size(), 8u);
    EXPECT_EQ(s[0].packet, (Bytes{0x81, 0x01, 0x04, 0x07, 0x37, 0xFF}));
    EXPECT_EQ(s[1].packet, (Bytes{0x81, 0x01, 0x04, 0x38, 0x03, 0xFF}));
    EXPECT_EQ(s[2].packet, (Bytes{0x81, 0x01, 0x04, 0x08, 0x00, 0xFF}));
    EXPECT_EQ(s[4].packet, (Bytes{0x81, 0x01, 0x04, 0x08, 0x23, 0xFF}));
    EXPECT_EQ(s[5].packet, (Bytes{0x81, 0x01, 0x04, 0x07, 0x2A, 0xFF}));
    EXPECT_EQ(s[6].packet, (Bytes{0x81, 0x01, 0x04, 0x38, 0x03, 0xFF}));
    EXPECT_EQ(s[7].packet, (Bytes{0x81, 0x01, 0x04, 0x08, 0x00, 0xFF}));
}

TEST_F(ImageCtrl, PanTiltActions) {
    EXPECT_EQ(image_ptz_ctrl(0, 5), 0);
    EXPECT_EQ(image_ptz_ctrl(3, 25), -1);
    EXPECT_EQ(image_ptz_ctrl(11, 1), -1);
    EXPECT_EQ(image_ptz_ctrl(9, 24), 0);
    EXPECT_EQ(image_ptz_ctrl(5, 0), 0);
    EXPECT_EQ(image_ptz_ctrl(6, 0), 0);
    EXPECT_EQ(image_ptz_drive(2, 0x10, 1, 0x08), 0);
    auto s = camera.sends();
    ASSERT_EQ(s.size(), 5u);
    EXPECT_EQ(s[0].packet, (Bytes{0x81, 0x01, 0x06, 0x01, 0x05, 0x05, 0x03, 0x03, 0xFF}));
    EXPECT_EQ(s[1].packet, (Bytes{0x81, 0x01, 0x06, 0x01, 0x18, 0x18, 0x02, 0x01, 0xFF}));
    EXPECT_EQ(s[2].packet, (Bytes{0x81, 0x01, 0x06, 0x04, 0xFF}));
    EXPECT_EQ(s[3].packet, (Bytes{0x81, 0x01, 0x06, 0x05, 0xFF}));
    EXPECT_EQ(s[4].packet, (Bytes{0x81, 0x01, 0x06, 0x01, 0x10, 0x08, 0x02, 0x01, 0xFF}));
    EXPECT_EQ(camera.log[camera.log.size() - 2].how, "flush");
}

// Each accepted drive names its direction at debug level; refused ones stay silent.
TEST_F(ImageCtrl, DrivesLogTheirDirection) {
    const std::string texts = debug_texts([] {
        image_zoom_ctrl(0, 1);
        image_zoom_ctrl(1, 1);
        image_zoom_ctrl(2, 1);
        image_zoom_ctrl(1, 8);
        image_focus_ctrl(0, 1);
        image_focus_ctrl(1, 1);
        image_focus_ctrl(2, 1);
        for (int action = 0; action <= 11; ++action) image_ptz_ctrl(action, 1);
    });
    EXPECT_EQ(texts,
              "Zoom Stop\nZoom In\nZoom Out\n"
              "Focus Stop\nFocus Near\nFocus Far\n"
              "PTZ Stop\nPTZ Up\nPTZ Down\nPTZ Left\nPTZ Right\nPTZ Home\nPTZ Reset\n"
              "PTZ Up Left\nPTZ Down Left\nPTZ Up Right\nPTZ Down Right\n");
}

TEST_F(ImageCtrl, AbsolutePositionKeepsTheOtherAxis) {
    reply({0x11, 0x00, 0, 0, 0xCD, 0xAB, 0, 0});   // pan 0x0011, tilt 0xABCD
    EXPECT_EQ(image_abs_position(-1, -1, 0x1234, -1), 0);
    ASSERT_EQ(camera.log.size(), 3u);
    EXPECT_EQ(camera.log[0].packet, (Bytes{0x81, 0x09, 0x06, 0x12, 0xFF}));
    EXPECT_EQ(camera.log[1].how, "flush");
    EXPECT_EQ(camera.log[2].packet, (Bytes{0x81, 0x01, 0x06, 0x02, 0x18, 0x18, 0x01, 0x02, 0x03,
                                        0x04, 0x0A, 0x0B, 0x0C, 0x0D, 0xFF}));

    camera.log.clear();
    fail();                                         // position unknown: the other axis is 0
    EXPECT_EQ(image_abs_position(-1, -1, -1, -2), 0);
    EXPECT_EQ(camera.log.back().packet, (Bytes{0x81, 0x01, 0x06, 0x02, 0x18, 0x18, 0x00, 0x00, 0x00,
                                            0x00, 0x0F, 0x0F, 0x0F, 0x0E, 0xFF}));

    camera.log.clear();
    EXPECT_EQ(image_abs_position(0x4000, 0x0123, -1, -1), 0);
    EXPECT_EQ(image_abs_position(-1, 0x0123, 1, 2), 0);
    ASSERT_EQ(camera.log.size(), 6u);
    EXPECT_EQ(camera.log[0].how, "flush");
    EXPECT_EQ(camera.log[1].packet, (Bytes{0x81, 0x01, 0x04, 0x47, 0x04, 0x00, 0x00, 0x00, 0x00, 0x01,
                                        0x02, 0x03, 0xFF}));
    EXPECT_EQ(camera.log[3].packet, (Bytes{0x81, 0x01, 0x04, 0x48, 0x00, 0x01, 0x02, 0x03, 0xFF}));
    EXPECT_EQ(camera.log[4].how, "flush");
    EXPECT_EQ(camera.log[5].packet.size(), 15u);
}

// ---- presets --------------------------------------------------------------------------------

TEST_F(ImageCtrl, PresetsAndResets) {
    reply({0x01, 0x50, 0xFF});
    EXPECT_EQ(image_preset_query(0xE6), 1);
    EXPECT_EQ(camera.log.back().packet, (Bytes{0x81, 0x09, 0x04, 0x3F, 0x0E, 0x06, 0xFF}));
    EXPECT_EQ(camera.log.back().capacity, 7);
    EXPECT_EQ(image_preset_query(256), -1);

    camera.log.clear();
    EXPECT_EQ(image_preset_ctrl(1, 0x12), 0);
    EXPECT_EQ(image_preset_ctrl(3, 1), -1);
    EXPECT_EQ(image_preset_ctrl(0, 256), -1);
    EXPECT_EQ(image_params_reset(0), 0);
    EXPECT_EQ(image_params_save(0), 0);
    EXPECT_EQ(image_params_save(1), 0);
    auto s = camera.sends();
    ASSERT_EQ(s.size(), 2u);
    EXPECT_EQ(s[0].packet, (Bytes{0x81, 0x01, 0x04, 0x3F, 0x01, 0x01, 0x02, 0xFF}));
    EXPECT_EQ(s[1].packet, (Bytes{0x81, 0x01, 0x04, 0x3F, 0x10, 0x01, 0xFF}));
}

TEST_F(ImageCtrl, SnapshotRefusesUnsafeNames) {
    for (const char* name : {"a/b", "x;reboot", "$(id)", "..", "a b", "`x`"})
        EXPECT_EQ(image_snapshot(1, name, 1920, 1080, 0), -1) << name;
    EXPECT_EQ(image_snapshot(1, nullptr, 0, 1080, 0), -1);
    EXPECT_EQ(image_snapshot(300, "ok.jpg", 1920, 1080, 0), -1);
    EXPECT_TRUE(camera.log.empty());
}

}  // namespace
