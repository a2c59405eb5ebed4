#include "window.h"

#include <windows.h>

#include <vector>

#include "report.h"

static HWND window;
static std::vector<Box> picture;

static COLORREF gdi_color(std::uint32_t rgb) { return RGB(rgb >> 16 & 0xFF, rgb >> 8 & 0xFF, rgb & 0xFF); }

static void fill(HDC context, int x, int y, int width, int height, std::uint32_t color) {
  const RECT area = {x, y, x + width, y + height};
  const HBRUSH brush = CreateSolidBrush(gdi_color(color));
  FillRect(context, &area, brush);
  DeleteObject(brush);
}

static void paint(HDC context) {
  fill(context, 0, 0, field_width, field_height, 0x202428);
  SetBkMode(context, TRANSPARENT);
  SetTextColor(context, gdi_color(0xE8E8E8));
  for (const Box& box : picture) {
    fill(context, box.x, box.y, box.width, box.height, box.color);
    TextOutW(context, 12, 12, box.label.c_str(), static_cast<int>(box.label.size()));
  }
}

/// Paints into memory first, so that nothing flickers.
static void paint_window(HWND window) {
  PAINTSTRUCT paint_struct;
  const HDC screen = BeginPaint(window, &paint_struct);
  const HDC memory = CreateCompatibleDC(screen);
  const HBITMAP bitmap = CreateCompatibleBitmap(screen, field_width, field_height);
  const HGDIOBJ before = SelectObject(memory, bitmap);
  paint(memory);
  BitBlt(screen, 0, 0, field_width, field_height, memory, 0, 0, SRCCOPY);
  SelectObject(memory, before);
  DeleteObject(bitmap);
  DeleteDC(memory);
  EndPaint(window, &paint_struct);
}

static LRESULT CALLBACK window_procedure(HWND window, UINT message, WPARAM wparam, LPARAM lparam) {
  switch (message) {
    case WM_PAINT: paint_window(window); return 0;
    case WM_ERASEBKGND: return 1;  // the picture covers everything
    case WM_DESTROY: PostQuitMessage(0); return 0;
    default: return DefWindowProcW(window, message, wparam, lparam);
  }
}

void open_window() {
  WNDCLASSW window_class = {};
  window_class.lpfnWndProc = window_procedure;
  window_class.hInstance = GetModuleHandleW(nullptr);
  window_class.hCursor = LoadCursorW(nullptr, reinterpret_cast<LPCWSTR>(IDC_ARROW));
  window_class.lpszClassName = L"SamplePlayerWindow";
  RegisterClassW(&window_class);

  constexpr DWORD style = WS_OVERLAPPED | WS_CAPTION | WS_SYSMENU | WS_MINIMIZEBOX;
  RECT area = {0, 0, field_width, field_height};
  AdjustWindowRect(&area, style, FALSE);
  window = CreateWindowExW(0, window_class.lpszClassName, L"Sample player", style, CW_USEDEFAULT, CW_USEDEFAULT,
                           area.right - area.left, area.bottom - area.top, nullptr, nullptr, window_class.hInstance,
                           nullptr);
  if (window == nullptr) fail(EXIT_NOT_STARTED, "cannot open a window (Windows error %lu)", GetLastError());
  ShowWindow(window, SW_SHOWNORMAL);
  UpdateWindow(window);
}

void clear_picture() { picture.clear(); }
void show_box(Box box) { picture.push_back(std::move(box)); }
void present() { InvalidateRect(window, nullptr, FALSE); }

static bool pump_messages() {
  MSG message;
  while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) {
    if (message.message == WM_QUIT) return false;
    TranslateMessage(&message);
    DispatchMessageW(&message);
  }
  return true;
}

bool pump_messages_for(unsigned milliseconds) {
  const ULONGLONG end = GetTickCount64() + milliseconds;
  for (ULONGLONG now = GetTickCount64(); now < end; now = GetTickCount64()) {
    MsgWaitForMultipleObjects(0, nullptr, FALSE, static_cast<DWORD>(end - now), QS_ALLINPUT);
    if (!pump_messages()) return false;
  }
  return pump_messages();
}

std::wstring window_title() {
  wchar_t title[128];
  return std::wstring(title, GetWindowTextW(window, title, 128));
}

static bool has_focus() { return GetForegroundWindow() == window; }

HeldSpaceBar::HeldSpaceBar() : pressed_(has_focus()) {
  if (pressed_) keybd_event(VK_SPACE, 0, 0, 0);
}
HeldSpaceBar::~HeldSpaceBar() {
  if (pressed_) keybd_event(VK_SPACE, 0, KEYEVENTF_KEYUP, 0);
}
bool HeldSpaceBar::is_ours() const { return pressed_ && has_focus(); }
