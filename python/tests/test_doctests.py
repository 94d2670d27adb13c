"""The examples in the package's documentation."""

import doctest
import importlib
import pkgutil

import orvacam

# What an optional part needs is imported when it is used; its examples run where the tests of that part do.
MODULES = ['orvacam'] + [f'orvacam.{module.name}' for module in pkgutil.iter_modules(orvacam.__path__)
                         if module.name != '_core']


def test_examples_give_what_they_show() -> None:
    tried = 0
    for name in MODULES:
        module = importlib.import_module(name)
        result = doctest.testmod(module, extraglobs=dict(vars(orvacam)))
        assert result.failed == 0, name
        tried += result.attempted
    assert tried > 20
