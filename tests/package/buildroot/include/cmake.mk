# The build itself is tested elsewhere.
