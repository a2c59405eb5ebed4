// The part of macOS's <mach/mach.h> that game code and the real programs need.
#pragma once

typedef int kern_return_t;
typedef unsigned int mach_port_t, mach_msg_type_number_t, natural_t;
typedef mach_port_t task_t, thread_t, thread_act_t;
typedef thread_act_t* thread_act_array_t;
typedef int thread_state_flavor_t;
typedef natural_t* thread_state_t;
typedef unsigned long vm_address_t, vm_size_t;

#define KERN_SUCCESS 0
#define KERN_ABORTED 14
#define MACH_PORT_NULL 0

#define x86_THREAD_STATE64 4
#define x86_THREAD_STATE64_COUNT 42
typedef struct {
  unsigned long __rax, __rbx, __rcx, __rdx, __rdi, __rsi, __rbp, __rsp, __r8, __r9, __r10, __r11, __r12, __r13, __r14,
      __r15, __rip, __rflags, __cs, __fs, __gs;
} x86_thread_state64_t;

#ifdef __cplusplus
extern "C" {
#endif
extern mach_port_t mach_task_self_;
#define mach_task_self() mach_task_self_
#define current_task() mach_task_self_
mach_port_t mach_thread_self(void);
kern_return_t mach_port_deallocate(task_t task, mach_port_t name);
kern_return_t thread_suspend(thread_act_t thread);
kern_return_t thread_resume(thread_act_t thread);
kern_return_t thread_get_state(thread_act_t thread, thread_state_flavor_t flavor, thread_state_t state,
                               mach_msg_type_number_t* count);
kern_return_t task_threads(task_t task, thread_act_array_t* threads, mach_msg_type_number_t* count);
kern_return_t vm_deallocate(task_t task, vm_address_t address, vm_size_t size);
#ifdef __cplusplus
}
#endif
