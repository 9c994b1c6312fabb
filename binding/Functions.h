// The functions of the Python module that work with integer handles, and its exception.
#ifndef SYLVORA_BINDING_FUNCTIONS_H
#define SYLVORA_BINDING_FUNCTIONS_H

#include <Python.h>

// LoadModel, OnlineTesting and ReleaseModel, ended by an empty entry. docs/python.md describes
// them.
PyMethodDef* HandleFunctions();

// Makes `sylvora.error` and adds it to a module as `error`; once per process, before any function
// is called. Returns it, borrowed, or null with a Python exception set.
PyObject* AddError(PyObject* module);

#endif  // SYLVORA_BINDING_FUNCTIONS_H
