#include "server/watchdog/corvo_stack.h"

#include <ucontext.h>
#include <unwind.h>

#include <utility>

#include "server/watchdog/corvo_code_map.h"

namespace corvo::server {
namespace {

/** The most frames that the handler itself can have, between the walk and the interrupted code. */
constexpr int MAX_HANDLER_FRAMES = 40;

struct Registers {
    uintptr_t pc = 0;  ///< 0 if nothing was interrupted
    uintptr_t lr = 0;
    uintptr_t sp = 0;
};

/** The context that the innermost handler interrupted; null outside handlers. */
thread_local const void* t_context = nullptr;

Registers registers_of(const void* ucontext) {
    if (!ucontext) return {};
    const auto& machine = static_cast<const ucontext_t*>(ucontext)->uc_mcontext;
#if defined(__x86_64__)
    return {static_cast<uintptr_t>(machine.gregs[REG_RIP]), 0,
            static_cast<uintptr_t>(machine.gregs[REG_RSP])};
#elif defined(__arm__)
    constexpr unsigned long THUMB_STATE = 0x20;
    return {machine.arm_pc | (machine.arm_cpsr & THUMB_STATE ? 1 : 0), machine.arm_lr, machine.arm_sp};
#else
    (void)machine;
    return {};
#endif
}

#ifdef __arm__
uintptr_t core_register(_Unwind_Context* context, uint32_t number) {
    uint32_t value = 0;
    _Unwind_VRS_Get(context, _UVRSC_CORE, number, _UVRSD_UINT32, &value);
    return value;
}
uintptr_t address_of(_Unwind_Context* context) {
    return core_register(context, 15);
}
uintptr_t stack_pointer_of(_Unwind_Context* context) {
    return core_register(context, 13);
}
#else
uintptr_t address_of(_Unwind_Context* context) {
    return _Unwind_GetIP(context);
}
uintptr_t stack_pointer_of(_Unwind_Context* context) {
    return _Unwind_GetCFA(context);
}
#endif

bool same_place(uintptr_t a, uintptr_t b) {
#ifdef __arm__
    return (a | 1) == (b | 1);
#else
    return a == b;
#endif
}

class Walk {
 public:
    explicit Walk(StackVisitor& visitor)
        : m_visitor(visitor), m_from(registers_of(t_context)), m_sp(m_from.sp) {
        if (m_from.pc != 0) show({m_from.pc, StackFrame::INTERRUPTED});
    }

    static _Unwind_Reason_Code on_frame(_Unwind_Context* context, void* arg) {
        auto* walk = static_cast<Walk*>(arg);
        return walk->step(address_of(context), stack_pointer_of(context)) ? _URC_NO_REASON
                                                                          : _URC_END_OF_STACK;
    }
    bool wanted() const { return m_wanted; }
    /** Goes on where the unwind tables end. */
    void guess_the_rest() {
        if (!m_wanted || !has_map()) return;
        uintptr_t shown = m_from.lr;  // usually also on the stack
        show_lr(0);
        m_map.scan_from(m_sp);
        for (uintptr_t address = 0; m_wanted && (address = m_map.next_return_address()) != 0;)
            if (address != std::exchange(shown, 0)) show({address, StackFrame::GUESS});
    }

 private:
    bool step(uintptr_t address, uintptr_t sp) {
        const int number = m_number++;
        if (m_from.pc != 0 && !m_arrived) {
            m_arrived = same_place(address, m_from.pc);
            return m_arrived || number < MAX_HANDLER_FRAMES;
        }
        if (number == 0) return true;  // the walk's own frame
        m_sp = sp;
        show_lr(address);
        return m_wanted && show({address, StackFrame::CALLER});
    }

    /** Until a function calls another, its return address is only in the link register. */
    void show_lr(uintptr_t caller) {
        const uintptr_t lr = m_from.lr;
        m_from.lr = 0;
        if (lr == 0 || same_place(lr, caller) || same_place(lr, m_from.pc)) return;
        if (has_map() && m_map.is_behind_call(lr)) show({lr, StackFrame::GUESS});
    }

    bool has_map() { return m_map_is_read || (m_map_is_read = m_map.read(m_sp)); }
    bool show(const StackFrame& frame) { return m_wanted = m_visitor.visit(frame); }

    StackVisitor& m_visitor;
    Registers m_from;
    uintptr_t m_sp;  ///< of the outermost frame so far
    int m_number = 0;
    bool m_arrived = false;
    bool m_wanted = true;
    bool m_map_is_read = false;
    CodeMap m_map;
};

}  // namespace

InterruptedHere::InterruptedHere(const void* ucontext) : m_outer(t_context) {
    t_context = ucontext;
}

InterruptedHere::~InterruptedHere() {
    t_context = m_outer;
}

void walk_stack(StackVisitor& visitor) {
    Walk walk(visitor);
    if (walk.wanted()) _Unwind_Backtrace(Walk::on_frame, &walk);
    walk.guess_the_rest();
}

}  // namespace corvo::server
