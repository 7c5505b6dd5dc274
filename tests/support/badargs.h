// Table-driven checker of an export's argument tests.  Describe the
// arguments once, with the status each fault must give; the checker calls the
// function once per fault (each pointer null, each bad value, and by default
// each null combined with each bad value, where the null must win) plus once
// with all arguments good (must give kvoOk), and checks the status, that a
// failed call wrote nothing (outputs are canary-filled first), and that no
// call wrote to an input or to the guard bytes around any buffer.
//
//   kvosc::test::BadArgs t("kvosMul_NR_16s_Sfs");
//   auto a   = t.in<Kvo16s>("pSrc1", 40);
//   auto y   = t.out<Kvo16s>("pDst", 40);
//   auto len = t.value<Kvo32s>("len", 40, {{0, kvoErrSize}, {-1, kvoErrSize}});
//   t.run([&](const kvosc::test::BadArgs::Call& c) { return f(c(a), c(y), c(len)); });
//
// Options: t.optional(p) (null is legal), t.valid_status(st),
// t.combo(st, {t.null(p), t.bad(v, k)})
// (k: index of the bad value in its list), t.state("pState", bytes, init) for a
// record prepared by init before every case.
#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <initializer_list>
#include <sstream>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "kvosc_types.h"

namespace kvosc::test {

class BadArgs {
  public:
    // clang-format off
    template <class T> struct Ptr { size_t id; };
    template <class T> struct Val { size_t id; };
    struct Fault { size_t id; int bad; };  // bad -1: the pointer is null; k >= 0: k-th bad value
    // clang-format on
    struct Report {
        int cases = 0;     // calls made
        int failures = 0;  // cases with a wrong status or a modified buffer
    };

    explicit BadArgs(std::string function) : function_(std::move(function)) {}
    BadArgs(const BadArgs&) = delete;
    BadArgs& operator=(const BadArgs&) = delete;

    // Pointers: an input of `count` elements (pseudo-random unless data is
    // given; `lead` elements before the pointer belong to it too, data then
    // holds lead + count), a canary-filled output, a vector read and written,
    // a state record of `bytes` prepared by init(record) before every call.
    // clang-format off
    template <class T>
    Ptr<T> in(const char* name, size_t count, std::vector<T> data = {}, size_t lead = 0) {
        return add_ptr<T>(name, Kind::In, count, std::move(data), lead);
    }
    template <class T>
    Ptr<T> out(const char* name, size_t count) { return add_ptr<T>(name, Kind::Out, count, {}, 0); }
    template <class T>
    Ptr<T> inout(const char* name, size_t count, std::vector<T> data = {}, size_t lead = 0) {
        return add_ptr<T>(name, Kind::InOut, count, std::move(data), lead);
    }
    // clang-format on
    Ptr<void> state(const char* name, size_t bytes, std::function<void(void*)> init) {
        Ptr<void> p = add_ptr<uint8_t, void>(name, Kind::State, bytes, {}, 0);
        args_[p.id].init = std::move(init);
        return p;
    }

    // A value argument: its good value and each bad value with its status.
    template <class T>
    Val<T> value(const char* name, T good,
                 std::initializer_list<std::pair<T, KvoStatus>> bad = {}) {
        static_assert(std::is_trivially_copyable_v<T>);
        Arg a;
        a.name = name;
        a.kind = Kind::Value;
        a.good = to_bytes(good);
        for (const auto& [v, st] : bad) {
            a.bad.push_back(to_bytes(v));
            a.bad_status.push_back(st);
            a.bad_text.push_back(::testing::PrintToString(v));
        }
        args_.push_back(std::move(a));
        return Val<T>{args_.size() - 1};
    }

    // clang-format off
    template <class P> Fault null(P p) const { return {p.id, -1}; }
    template <class T> Fault bad(Val<T> v, int k) const { return {v.id, k}; }
    template <class P> void optional(P p) { args_[p.id].nullable = false; }
    // clang-format on
    void combo(KvoStatus expected, std::vector<Fault> faults) {
        extra_.push_back({std::move(faults), expected});
    }
    void valid_status(KvoStatus st) { valid_ = st; }

    // What the callable receives: c(ptr) and c(value) give the argument of
    // the current case.
    class Call {
      public:
        template <class T>
        T* operator()(Ptr<T> p) const {
            for (const auto& f : faults_)
                if (f.id == p.id && f.bad < 0) return nullptr;
            return static_cast<T*>(static_cast<void*>(owner_->args_[p.id].ptr));
        }
        template <class T>
        T operator()(Val<T> v) const {
            const Arg& a = owner_->args_[v.id];
            const std::vector<uint8_t>* src = &a.good;
            for (const auto& f : faults_)
                if (f.id == v.id && f.bad >= 0) src = &a.bad[static_cast<size_t>(f.bad)];
            T out;
            std::memcpy(&out, src->data(), sizeof(T));
            return out;
        }

      private:
        friend class BadArgs;
        Call(const BadArgs* o, const std::vector<Fault>& f) : owner_(o), faults_(f) {}
        const BadArgs* owner_;
        const std::vector<Fault>& faults_;
    };

    // Runs every case through f (a callable taking const Call& and returning
    // a status) and reports each failure through ADD_FAILURE.
    template <class F>
    Report run(F&& f) {
        Report rep;
        for (const Case& c : cases()) {
            ++rep.cases;
            prepare();
            std::vector<std::vector<uint8_t>> before;
            for (const Arg& a : args_) before.push_back(a.storage);
            int got = static_cast<int>(f(Call(this, c.faults)));
            if (!verify(c, got, before)) ++rep.failures;
        }
        return rep;
    }

  private:
    enum class Kind { In, Out, InOut, State, Value };
    static constexpr size_t kGuard = 64;

    struct Arg {
        std::string name;
        Kind kind = Kind::In;
        size_t elem = 1, count = 0, lead = 0;  // pointers: lead elements before the pointer
        std::vector<uint8_t> data;             // initial contents (lead + count elements)
        std::function<void(void*)> init;
        bool nullable = true;
        std::vector<uint8_t> storage;  // guard | lead+count elements | guard
        uint8_t* region = nullptr;     // start of the argument's bytes (at lead)
        uint8_t* ptr = nullptr;        // what the function receives
        std::vector<uint8_t> good;     // values
        std::vector<std::vector<uint8_t>> bad;
        std::vector<KvoStatus> bad_status;
        std::vector<std::string> bad_text;
    };
    struct Case {
        std::vector<Fault> faults;
        KvoStatus want;
    };

    template <class T>
    static std::vector<uint8_t> to_bytes(const T& v) {
        std::vector<uint8_t> b(sizeof(T));
        std::memcpy(b.data(), &v, sizeof(T));
        return b;
    }

    template <class E, class H = E>
    Ptr<H> add_ptr(const char* name, Kind kind, size_t count, std::vector<E> data, size_t lead) {
        Arg a;
        a.name = name;
        a.kind = kind;
        a.elem = sizeof(E);
        a.count = count;
        a.lead = lead;
        size_t bytes = (lead + count) * sizeof(E);
        a.data.resize(bytes);
        if (!data.empty()) {
            EXPECT_EQ(data.size(), lead + count) << function_ << ": data of " << name;
            data.resize(lead + count);
            std::memcpy(a.data.data(), data.data(), bytes);
        } else {  // deterministic pseudo-random contents, different for each argument
            uint32_t s = 0x9e3779b9u * static_cast<uint32_t>(args_.size() + 1);
            for (auto& x : a.data) x = static_cast<uint8_t>((s = s * 1664525u + 1013904223u) >> 24);
        }
        // 64-byte aligned start after the front guard.
        a.storage.resize(kGuard + bytes + kGuard + 64);
        uintptr_t base = reinterpret_cast<uintptr_t>(a.storage.data()) + kGuard;
        base = (base + 63) & ~uintptr_t{63};
        a.region = reinterpret_cast<uint8_t*>(base);
        a.ptr = a.region + lead * sizeof(E);
        args_.push_back(std::move(a));
        return Ptr<H>{args_.size() - 1};
    }

    static uint8_t canary(size_t arg, size_t i) {
        return static_cast<uint8_t>(0xa5u + 0x3bu * i + 0x51u * arg);
    }

    void prepare() {
        for (size_t k = 0; k < args_.size(); ++k) {
            Arg& a = args_[k];
            if (a.kind == Kind::Value) continue;
            for (size_t i = 0; i < a.storage.size(); ++i) a.storage[i] = canary(k, i);
            if (a.kind == Kind::In || a.kind == Kind::InOut)
                std::memcpy(a.region, a.data.data(), a.data.size());
            if (a.kind == Kind::State && a.init) a.init(a.ptr);
        }
    }

    std::vector<Case> cases() const {
        std::vector<Case> out{Case{{}, valid_}};
        for (size_t k = 0; k < args_.size(); ++k)
            if (args_[k].kind != Kind::Value && args_[k].nullable)
                out.push_back({{{k, -1}}, kvoErrNullPtr});
        for (size_t k = 0; k < args_.size(); ++k)
            for (size_t b = 0; b < args_[k].bad.size(); ++b)
                out.push_back({{{k, static_cast<int>(b)}}, args_[k].bad_status[b]});
        for (size_t p = 0; p < args_.size(); ++p) {  // a null pointer wins over a bad value
            if (args_[p].kind == Kind::Value || !args_[p].nullable) continue;
            for (size_t k = 0; k < args_.size(); ++k)
                for (size_t b = 0; b < args_[k].bad.size(); ++b)
                    out.push_back({{{p, -1}, {k, static_cast<int>(b)}}, kvoErrNullPtr});
        }
        for (const Case& c : extra_) out.push_back(c);
        return out;
    }

    std::string describe(const Case& c) const {
        if (c.faults.empty()) return "all arguments valid";
        std::string s;
        for (const Fault& f : c.faults) {
            const Arg& a = args_[f.id];
            if (!s.empty()) s += ", ";
            s += a.name + " = " + (f.bad < 0 ? "null" : a.bad_text[static_cast<size_t>(f.bad)]);
        }
        return s;
    }

    bool verify(const Case& c, int got, const std::vector<std::vector<uint8_t>>& before) const {
        bool ok = true;
        std::string what = function_ + "(" + describe(c) + ")";
        if (got != c.want) {
            ADD_FAILURE() << what << ": status " << got << ", want " << c.want;
            ok = false;
        }
        bool failed_call = c.want < 0;
        for (size_t k = 0; k < args_.size(); ++k) {
            const Arg& a = args_[k];
            if (a.kind == Kind::Value) continue;
            size_t lo = static_cast<size_t>(a.region - a.storage.data());
            size_t hi = lo + a.data.size();
            bool writable = a.kind != Kind::In && !failed_call;
            for (size_t i = 0; i < a.storage.size(); ++i) {
                if (a.storage[i] == before[k][i]) continue;
                if (writable && i >= lo && i < hi) continue;
                std::ostringstream m;
                m << what << ": " << a.name;
                if (i < lo || i >= hi)
                    m << " guard byte " << (i < lo ? "before" : "after") << " the buffer";
                else
                    m << " byte "
                      << (static_cast<long>(i - lo) - static_cast<long>(a.lead * a.elem))
                      << (a.kind == Kind::In ? " (an input)" : "");
                m << " changed from " << int(before[k][i]) << " to " << int(a.storage[i])
                  << (failed_call ? " by a call that failed" : "");
                ADD_FAILURE() << m.str();
                ok = false;
                break;  // one report per argument
            }
        }
        return ok;
    }

    std::string function_;
    std::vector<Arg> args_;
    std::vector<Case> extra_;
    KvoStatus valid_ = kvoOk;
};

}  // namespace kvosc::test
