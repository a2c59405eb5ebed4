// UnityEngine.CoreModule.dll: value types, the scene manager, and the internal calls that the player registers.
#include "game/engine.h"

#include "runtime/method_tables.h"

// The way into the player

static InternalCall<int32_t()> get_frame_count("UnityEngine.Time::get_frameCount");
static InternalCall<int32_t()> get_platform("UnityEngine.Application::get_platform");
static InternalCall<Il2CppString*()> get_persistent_data_path("UnityEngine.Application::get_persistentDataPath");
static InternalCall<Il2CppString*()> get_device_model("UnityEngine.SystemInfo::GetDeviceModel");
static InternalCall<void(Il2CppString*)> log_string("UnityEngine.Debug::Log(System.String)");
static InternalCall<void(int32_t, int32_t, int32_t, int32_t, int32_t, Il2CppString*)> draw_box(
    "UnityEngine.Graphics::DrawBox");
static InternalCall<Vector3(Vector3)> world_to_screen_point("UnityEngine.Camera::WorldToScreenPoint");
static InternalCall<int32_t()> get_max_particles("UnityEngine.ParticleSystem/MainModule::get_maxParticles");
static InternalCall<int32_t()> get_lock_state("UnityEngine.Cursor::get_lockState");

int32_t time_frame_count() { return get_frame_count(); }
int32_t application_platform() { return get_platform(); }
Il2CppString* application_persistent_data_path() { return get_persistent_data_path(); }
Il2CppString* system_info_device_model() { return get_device_model(); }
void debug_log(Il2CppString* text) { log_string(text); }
void graphics_draw_box(int32_t x, int32_t y, int32_t width, int32_t height, int32_t color, Il2CppString* label) {
  draw_box(x, y, width, height, color, label);
}
Vector3 camera_world_to_screen_point(Vector3 place) { return world_to_screen_point(place); }
int32_t particle_system_max_particles() { return get_max_particles(); }
int32_t cursor_lock_state() { return get_lock_state(); }

// UnityEngine.Vector3 and .SceneManagement.Scene

static FieldInfo vector3_fields[] = {
    {"x", &single_class.type, FIELD_PUBLIC, sizeof(Il2CppObject) + offsetof(Vector3, x)},
    {"y", &single_class.type, FIELD_PUBLIC, sizeof(Il2CppObject) + offsetof(Vector3, y)},
    {"z", &single_class.type, FIELD_PUBLIC, sizeof(Il2CppObject) + offsetof(Vector3, z)},
};
Il2CppClass vector3_class = {.name = "Vector3",
                             .name_space = "UnityEngine",
                             .parent = &value_type_class,
                             .type = {&vector3_class, TYPE_VALUETYPE},
                             .flags = CLASS_PUBLIC | CLASS_SEALED,
                             .instance_size = sizeof(Il2CppObject) + sizeof(Vector3),
                             .alignment = alignof(Vector3),
                             .fields = vector3_fields};

static FieldInfo scene_fields[] = {{"m_Handle", &int32_class.type, 0, sizeof(Il2CppObject)}};
Il2CppClass scene_class = {.name = "Scene",
                           .name_space = "UnityEngine.SceneManagement",
                           .parent = &value_type_class,
                           .type = {&scene_class, TYPE_VALUETYPE},
                           .flags = CLASS_PUBLIC | CLASS_SEALED,
                           .instance_size = sizeof(Il2CppObject) + sizeof(Scene),
                           .alignment = alignof(Scene),
                           .fields = scene_fields};

// UnityEngine.SceneManagement.SceneManager: the player calls in here when a scene comes to the front.

static void SceneManager_Internal_ActiveSceneChanged(Scene previous, Scene next, const MethodInfo*) {
  log(Text() << "game: scene " << next.handle << " follows scene " << previous.handle);
}

static const ParameterInfo scene_changed_parameters[] = {{"previousActiveScene", &scene_class.type},
                                                         {"newActiveScene", &scene_class.type}};
static MethodInfo scene_manager_methods[] = {static_method<SceneManager_Internal_ActiveSceneChanged>(
    "Internal_ActiveSceneChanged", &void_class.type, scene_changed_parameters)};

// Classes of internal calls

static const ParameterInfo log_parameters[] = {{"message", &string_class.type}};
static const ParameterInfo draw_box_parameters[] = {{"x", &int32_class.type},     {"y", &int32_class.type},
                                                    {"width", &int32_class.type}, {"height", &int32_class.type},
                                                    {"color", &int32_class.type}, {"label", &string_class.type}};
static const ParameterInfo world_to_screen_parameters[] = {{"position", &vector3_class.type}};

static MethodInfo time_methods[] = {internal_call<int32_t (*)()>("get_frameCount", &int32_class.type)};
static MethodInfo application_methods[] = {
    internal_call<int32_t (*)()>("get_platform", &int32_class.type),
    internal_call<Il2CppString* (*)()>("get_persistentDataPath", &string_class.type)};
static MethodInfo system_info_methods[] = {internal_call<Il2CppString* (*)()>("GetDeviceModel", &string_class.type)};
static MethodInfo debug_methods[] = {internal_call<void (*)(Il2CppString*)>("Log", &void_class.type, log_parameters)};
static MethodInfo graphics_methods[] = {
    internal_call<void (*)(int32_t, int32_t, int32_t, int32_t, int32_t, Il2CppString*)>("DrawBox", &void_class.type,
                                                                                        draw_box_parameters)};
static MethodInfo camera_methods[] = {
    internal_call<Vector3 (*)(Vector3)>("WorldToScreenPoint", &vector3_class.type, world_to_screen_parameters)};
static MethodInfo main_module_methods[] = {internal_call<int32_t (*)()>("get_maxParticles", &int32_class.type)};
static MethodInfo cursor_methods[] = {internal_call<int32_t (*)()>("get_lockState", &int32_class.type)};

/// A static class: methods and nothing else.
#define METHODS_ONLY(variable, space, text, table)                                      \
  static Il2CppClass variable = {.name = text,                                          \
                                 .name_space = space,                                   \
                                 .parent = &object_class,                               \
                                 .type = {&variable, TYPE_CLASS},                       \
                                 .flags = CLASS_PUBLIC | CLASS_ABSTRACT | CLASS_SEALED, \
                                 .instance_size = sizeof(Il2CppObject),                 \
                                 .methods = table}
METHODS_ONLY(scene_manager_class, "UnityEngine.SceneManagement", "SceneManager", scene_manager_methods);
METHODS_ONLY(time_class, "UnityEngine", "Time", time_methods);
METHODS_ONLY(application_class, "UnityEngine", "Application", application_methods);
METHODS_ONLY(system_info_class, "UnityEngine", "SystemInfo", system_info_methods);
METHODS_ONLY(debug_class, "UnityEngine", "Debug", debug_methods);
METHODS_ONLY(graphics_class, "UnityEngine", "Graphics", graphics_methods);
METHODS_ONLY(camera_class, "UnityEngine", "Camera", camera_methods);
METHODS_ONLY(cursor_class, "UnityEngine", "Cursor", cursor_methods);

// UnityEngine.ParticleSystem and its nested MainModule

static Il2CppClass main_module_class = {.name = "MainModule",
                                        .parent = &object_class,
                                        .type = {&main_module_class, TYPE_CLASS},
                                        .flags = CLASS_NESTED_PUBLIC,
                                        .instance_size = sizeof(Il2CppObject),
                                        .methods = main_module_methods};
static Il2CppClass* const particle_system_nested[] = {&main_module_class};
static Il2CppClass particle_system_class = {.name = "ParticleSystem",
                                            .name_space = "UnityEngine",
                                            .parent = &object_class,
                                            .type = {&particle_system_class, TYPE_CLASS},
                                            .instance_size = sizeof(Il2CppObject),
                                            .nested = particle_system_nested};

static Il2CppClass* const classes[] = {
    &vector3_class, &scene_class,    &scene_manager_class, &time_class,   &application_class, &system_info_class,
    &debug_class,   &graphics_class, &camera_class,        &cursor_class, &main_module_class, &particle_system_class};

static Il2CppImage image = {"UnityEngine.CoreModule.dll", classes};
static Il2CppAssembly assembly = {"UnityEngine.CoreModule", &image};
static const AssemblyRegistration registration(assembly);
