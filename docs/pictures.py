def draw(): return {}
