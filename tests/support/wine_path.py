"""Paths as programs under Wine take them."""


def windows(path):
    return 'Z:' + str(path).replace('/', '\\')
