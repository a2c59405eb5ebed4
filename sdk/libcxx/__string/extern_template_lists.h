// Which members of std::string guests import rather than instantiate: those that the library has, and no others.
// Found before libc++'s own list, which names more.
#pragma once

#define _LIBCPP_STRING_V1_EXTERN_TEMPLATE_LIST(_Func, _CharType)                                                       \
  _Func(basic_string<_CharType>& basic_string<_CharType>::assign(value_type const*))                                   \
      _Func(basic_string<_CharType>& basic_string<_CharType>::operator=(basic_string const&))                          \
          _Func(basic_string<_CharType>& basic_string<_CharType>::append(value_type const*))                           \
              _Func(basic_string<_CharType>& basic_string<_CharType>::append(value_type const*, size_type))            \
                  _Func(basic_string<_CharType>& basic_string<_CharType>::append(size_type, value_type))               \
                      _Func(void basic_string<_CharType>::push_back(value_type)) _Func(                                \
                          basic_string<_CharType>& basic_string<_CharType>::insert(size_type, value_type const*))      \
                          _Func(basic_string<_CharType>::iterator basic_string<_CharType>::insert(                     \
                              basic_string::const_iterator, value_type))                                               \
                              _Func(void basic_string<_CharType>::resize(size_type, value_type))                       \
                                  _Func(void basic_string<_CharType>::reserve(size_type))                              \
                                      _Func(basic_string<_CharType>::~basic_string()) _Func(                           \
                                          void basic_string<_CharType>::__grow_by(size_type, size_type, size_type,     \
                                                                                  size_type, size_type, size_type))    \
                                          _Func(basic_string<_CharType>::size_type basic_string<_CharType>::find(      \
                                              value_type, size_type) const)                                            \
                                              _Func(basic_string<_CharType>::size_type basic_string<_CharType>::rfind( \
                                                  value_type, size_type) const)                                        \
                                                  _Func(int basic_string<_CharType>::compare(value_type const*) const)
