/* Preloaded by scripts/tsan.sh into the programs of the ThreadSanitizer run, never shipped.
 *
 * Qt starts a child process with clone(CLONE_VM | CLONE_VFORK): until its exec the child runs
 * in the parent's memory, on the parent's thread-local data. The sanitizer's interceptors that
 * the child passes through on its way to exec (sigaction, execve...) then update the parent
 * thread's sanitizer state, which the exec leaves half-changed: after a child started, that
 * thread's locks can go unseen and correctly locked code is reported as a race (reproduced
 * with a QProcess and a mutex shared with one other thread: about one run in four).
 *
 * In an instrumented process this turns such a clone into a plain fork-style one (the child
 * gets a copy of the memory), so the child cannot touch the parent's state. Processes without
 * the sanitizer are left as they are. */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <sched.h>
#include <stdarg.h>

typedef int (*clone_fn)(int (*)(void *), void *, int, void *, ...);

int clone(int (*fn)(void *), void *stack, int flags, void *arg, ...)
{
    va_list ap;
    va_start(ap, arg);
    void *parent_tid = va_arg(ap, void *);
    void *tls = va_arg(ap, void *);
    void *child_tid = va_arg(ap, void *);
    va_end(ap);

    static clone_fn real;
    static int instrumented = -1;
    if (!real)
        real = (clone_fn)dlsym(RTLD_NEXT, "clone");
    if (instrumented < 0)
        instrumented = dlsym(RTLD_DEFAULT, "__tsan_init") != 0;
    const int vfork_like = CLONE_VM | CLONE_VFORK;
    if (instrumented && (flags & vfork_like) == vfork_like && !(flags & CLONE_THREAD))
        flags &= ~vfork_like;
    return real(fn, stack, flags, arg, parent_tid, tls, child_tid);
}
