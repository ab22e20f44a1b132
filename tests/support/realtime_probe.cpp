#include "support/realtime_probe.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <pthread.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <new>

#if __has_include(<valgrind/valgrind.h>)
#include <valgrind/valgrind.h>
#endif

namespace {

using namespace eqdrc_test;

const char *const kKindNames[kKinds] = {"allocation", "lock", "I/O", "sleep"};

thread_local bool t_armed = false;
thread_local std::array<int, kKinds> t_calls{};

inline void note(Kind k)
{
    if (t_armed)
        ++t_calls[k];
}

// The next definition of `name` after this executable's, looked up once.
template <class F>
F next_symbol(F &cache, const char *name)
{
    if (cache == nullptr)
        cache = reinterpret_cast<F>(dlsym(RTLD_NEXT, name));
    return cache;
}

}  // namespace

#if EQDRC_RT_INTERPOSED
extern "C" {
void *__libc_malloc(size_t);
void *__libc_calloc(size_t, size_t);
void *__libc_realloc(void *, size_t);
void *__libc_memalign(size_t, size_t);
void __libc_free(void *);

// The allocator's entry points, counted and passed to glibc's own.
#define EQDRC_RT_COUNTED(ret, name, params, body) \
    ret name params                               \
    {                                             \
        note(kAlloc);                             \
        body;                                     \
    }
EQDRC_RT_COUNTED(void *, malloc, (size_t n), return __libc_malloc(n))
EQDRC_RT_COUNTED(void *, calloc, (size_t n, size_t size), return __libc_calloc(n, size))
EQDRC_RT_COUNTED(void *, realloc, (void *p, size_t n), return __libc_realloc(p, n))
EQDRC_RT_COUNTED(void, free, (void *p), __libc_free(p))
EQDRC_RT_COUNTED(void *, aligned_alloc, (size_t align, size_t n), return __libc_memalign(align, n))
EQDRC_RT_COUNTED(void *, memalign, (size_t align, size_t n), return __libc_memalign(align, n))
EQDRC_RT_COUNTED(int, posix_memalign, (void **p, size_t align, size_t n),
                 return (*p = __libc_memalign(align, n)) ? 0 : ENOMEM)

#define EQDRC_RT_FORWARD(kind, ret, name, params, args) \
    ret name params                                     \
    {                                                   \
        note(kind);                                     \
        static ret(*next) params = nullptr;             \
        return next_symbol(next, #name) args;           \
    }

EQDRC_RT_FORWARD(kLock, int, pthread_mutex_lock, (pthread_mutex_t * m), (m))
EQDRC_RT_FORWARD(kLock, int, pthread_mutex_trylock, (pthread_mutex_t * m), (m))
EQDRC_RT_FORWARD(kLock, int, pthread_cond_wait, (pthread_cond_t * c, pthread_mutex_t *m), (c, m))
EQDRC_RT_FORWARD(kLock, int, pthread_rwlock_rdlock, (pthread_rwlock_t * l), (l))
EQDRC_RT_FORWARD(kLock, int, pthread_rwlock_wrlock, (pthread_rwlock_t * l), (l))
EQDRC_RT_FORWARD(kIo, ssize_t, read, (int fd, void *buf, size_t n), (fd, buf, n))
EQDRC_RT_FORWARD(kIo, ssize_t, write, (int fd, const void *buf, size_t n), (fd, buf, n))
EQDRC_RT_FORWARD(kIo, int, close, (int fd), (fd))
EQDRC_RT_FORWARD(kIo, FILE *, fopen, (const char *path, const char *mode), (path, mode))
EQDRC_RT_FORWARD(kIo, FILE *, fopen64, (const char *path, const char *mode), (path, mode))
EQDRC_RT_FORWARD(kIo, size_t, fread, (void *p, size_t size, size_t n, FILE *f), (p, size, n, f))
EQDRC_RT_FORWARD(kIo, size_t, fwrite, (const void *p, size_t size, size_t n, FILE *f), (p, size, n, f))
EQDRC_RT_FORWARD(kIo, int, fputs, (const char *s, FILE *f), (s, f))
EQDRC_RT_FORWARD(kIo, int, fputc, (int c, FILE *f), (c, f))
EQDRC_RT_FORWARD(kIo, int, puts, (const char *s), (s))
EQDRC_RT_FORWARD(kIo, int, fflush, (FILE * f), (f))
EQDRC_RT_FORWARD(kIo, int, fclose, (FILE * f), (f))
EQDRC_RT_FORWARD(kIo, int, vfprintf, (FILE * f, const char *fmt, va_list ap), (f, fmt, ap))
EQDRC_RT_FORWARD(kIo, int, vprintf, (const char *fmt, va_list ap), (fmt, ap))
EQDRC_RT_FORWARD(kIo, int, socket, (int domain, int type, int protocol), (domain, type, protocol))
EQDRC_RT_FORWARD(kIo, int, connect, (int fd, const struct sockaddr *a, socklen_t n), (fd, a, n))
EQDRC_RT_FORWARD(kIo, ssize_t, send, (int fd, const void *buf, size_t n, int flags), (fd, buf, n, flags))
EQDRC_RT_FORWARD(kIo, ssize_t, recv, (int fd, void *buf, size_t n, int flags), (fd, buf, n, flags))
EQDRC_RT_FORWARD(kSleep, unsigned, sleep, (unsigned s), (s))
EQDRC_RT_FORWARD(kSleep, int, usleep, (useconds_t us), (us))
EQDRC_RT_FORWARD(kSleep, int, nanosleep, (const struct timespec *t, struct timespec *rem), (t, rem))
EQDRC_RT_FORWARD(kSleep, int, clock_nanosleep,
                 (clockid_t c, int flags, const struct timespec *t, struct timespec *rem), (c, flags, t, rem))

// The variadic ones: open's mode is only there with O_CREAT/O_TMPFILE, but reading it
// regardless is harmless on the ABIs we build for.
static int forward_open(int (*&next)(const char *, int, ...), const char *name, const char *path, int flags,
                        va_list ap)
{
    note(kIo);
    mode_t mode = va_arg(ap, mode_t);
    return next_symbol(next, name)(path, flags, mode);
}
#define EQDRC_RT_OPEN(name)                                   \
    int name(const char *path, int flags, ...)                \
    {                                                         \
        static int (*next)(const char *, int, ...) = nullptr; \
        va_list ap;                                           \
        va_start(ap, flags);                                  \
        int fd = forward_open(next, #name, path, flags, ap);  \
        va_end(ap);                                           \
        return fd;                                            \
    }
EQDRC_RT_OPEN(open)
EQDRC_RT_OPEN(open64)
int fprintf(FILE *f, const char *fmt, ...)
{
    va_list ap;
    va_start(ap, fmt);
    int n = vfprintf(f, fmt, ap);
    va_end(ap);
    return n;
}
int printf(const char *fmt, ...)
{
    va_list ap;
    va_start(ap, fmt);
    int n = vprintf(fmt, ap);
    va_end(ap);
    return n;
}
}  // extern "C"

void *operator new(size_t n)
{
    note(kAlloc);
    if (void *p = __libc_malloc(n ? n : 1))
        return p;
    throw std::bad_alloc();
}
void *operator new[](size_t n) { return operator new(n); }
void *operator new(size_t n, const std::nothrow_t &) noexcept
{
    note(kAlloc);
    return __libc_malloc(n ? n : 1);
}
void *operator new[](size_t n, const std::nothrow_t &t) noexcept { return operator new(n, t); }
void operator delete(void *p) noexcept
{
    note(kAlloc);
    __libc_free(p);
}
void operator delete[](void *p) noexcept { operator delete(p); }
void operator delete(void *p, size_t) noexcept { operator delete(p); }
void operator delete[](void *p, size_t) noexcept { operator delete(p); }
#endif

namespace eqdrc_test {

// The calls `body` makes on this thread, by kind.
RealtimeCalls calls_during(const std::function<void()> &body)
{
    t_calls = {};
    t_armed = true;
    body();
    t_armed = false;
    return t_calls;
}

std::string describe(const RealtimeCalls &c)
{
    std::string s;
    for (int k = 0; k < kKinds; ++k)
        if (c[k])
            s += std::to_string(c[k]) + " " + kKindNames[k] + " call(s); ";
    return s.empty() ? "none" : s;
}

bool probe_counts()
{
#if !EQDRC_RT_INTERPOSED
    return false;
#elif defined(RUNNING_ON_VALGRIND)
    return !RUNNING_ON_VALGRIND;
#else
    return true;
#endif
}

}  // namespace eqdrc_test
