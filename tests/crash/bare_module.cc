// A module with nothing in it.
