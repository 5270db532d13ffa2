#pragma once

namespace tavos::core {

/// The receiver of an event: a member function bound to an object. Call runs on the thread that fires the event.
template <class A>
class IVoidDelegate1 {
public:
    virtual ~IVoidDelegate1() = default;
    /// True if the delegate is bound to `object`.
    virtual bool Matches(void* object) const = 0;
    virtual void Call(const A& a) = 0;
};

template <class A, class B>
class IVoidDelegate2 {
public:
    virtual ~IVoidDelegate2() = default;
    virtual bool Matches(void* object) const = 0;
    virtual void Call(const A& a, const B& b) = 0;
};

template <class Object, class Method, class A>
class VoidObjectMethodDelegate1 final : public IVoidDelegate1<A> {
public:
    VoidObjectMethodDelegate1(Object* object, Method method) : _object(object), _method(method) {}
    bool Matches(void* object) const override { return object == _object; }
    void Call(const A& a) override { (_object->*_method)(a); }

private:
    Object* _object;
    Method _method;
};

template <class Object, class Method, class A, class B>
class VoidObjectMethodDelegate2 final : public IVoidDelegate2<A, B> {
public:
    VoidObjectMethodDelegate2(Object* object, Method method) : _object(object), _method(method) {}
    bool Matches(void* object) const override { return object == _object; }
    void Call(const A& a, const B& b) override { (_object->*_method)(a, b); }

private:
    Object* _object;
    Method _method;
};

/// A new delegate on the heap; the receiver (Event::AddHandler) owns it. `object` must outlive it.
template <class Object, class A>
IVoidDelegate1<A>* CreateDelegate(Object* object, void (Object::*method)(A)) {
    return new VoidObjectMethodDelegate1<Object, void (Object::*)(A), A>(object, method);
}

template <class Object, class A, class B>
IVoidDelegate2<A, B>* CreateDelegate(Object* object, void (Object::*method)(A, B)) {
    return new VoidObjectMethodDelegate2<Object, void (Object::*)(A, B), A, B>(object, method);
}

}  // namespace tavos::core
