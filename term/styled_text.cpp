// Not filled yet.
