// The engine's classes as the game's code sees them. What they do is up to the player: most are internal calls.
#pragma once

#include "runtime/runtime.h"

extern Il2CppClass vector3_class, scene_class;

/// UnityEngine.Vector3
struct Vector3 {
  float x, y, z;
};

/// UnityEngine.SceneManagement.Scene
struct Scene {
  int32_t handle;
};

// UnityEngine.Time, .Application, .Debug, .Graphics, .Camera, .ParticleSystem.MainModule, .Cursor
int32_t time_frame_count();
int32_t application_platform();
Il2CppString* application_persistent_data_path();
Il2CppString* system_info_device_model();
void debug_log(Il2CppString* text);
/// A filled box on the playing field; coordinates and sizes in the field's units, the colour as 0xRRGGBB.
void graphics_draw_box(int32_t x, int32_t y, int32_t width, int32_t height, int32_t color, Il2CppString* label);
/// Where a place of the field is seen: pixels from the window's lower left corner, and the distance from the camera.
Vector3 camera_world_to_screen_point(Vector3 place);
int32_t particle_system_max_particles();
int32_t cursor_lock_state();
